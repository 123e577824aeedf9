#include "kivo/platform/http/CurlError.h"

namespace kivo::platform {

namespace {

URLError::Code codeFor(CURLcode code) {
    switch (code) {
        case CURLE_URL_MALFORMAT: return URLError::badURL;
        case CURLE_OPERATION_TIMEDOUT: return URLError::timedOut;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY: return URLError::cannotFindHost;
        case CURLE_COULDNT_CONNECT: return URLError::cannotConnectToHost;
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_GOT_NOTHING:
        case CURLE_PARTIAL_FILE: return URLError::networkConnectionLost;
        case CURLE_PEER_FAILED_VERIFICATION: return URLError::serverCertificateUntrusted;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
        case CURLE_USE_SSL_FAILED: return URLError::secureConnectionFailed;
        default: return URLError::badServerResponse;
    }
}

}  // namespace

URLError urlError(CURLcode code) { return URLError(codeFor(code)); }

}  // namespace kivo::platform
