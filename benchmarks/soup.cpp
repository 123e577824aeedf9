// libsoup 3 on its main loop, as its manual advises: one session, asynchronous, all on one thread.

#include <libsoup/soup.h>

#include "benchmarks/Workload.h"

using namespace kivo::benchmarks;

namespace {

class Soup {
public:
    explicit Soup(const Load& load)
        : inFlight_(load.inFlight),
          uri_(g_uri_parse(load.url().c_str(), GUriFlags(SOUP_HTTP_URI_FLAGS), nullptr)),
          body_(g_bytes_new_static(body.data(), body.size())),
          session_(soup_session_new_with_options("max-conns", connections, "max-conns-per-host",
                                                 connections, "proxy-resolver", nullptr, nullptr)) {
        if (!load.usesTLS()) return;
        GTlsDatabase* trust = g_tls_file_database_new(load.trust.c_str(), nullptr);
        soup_session_set_tls_database(session_, trust);
    }

    void run(int calls) {
        left_ = calls;
        running_ = 0;
        while (running_ < inFlight_ && left_ > 0) begin();
        while (running_ > 0) g_main_context_iteration(nullptr, TRUE);
    }

private:
    void begin() {
        --left_;
        ++running_;
        SoupMessage* message = soup_message_new_from_uri("POST", uri_);
        SoupMessageHeaders* fields = soup_message_get_request_headers(message);
        for (const auto& [name, value] : headers) soup_message_headers_append(fields, name, value);
        // Without it libsoup opens a connection of its own for every POST.
        soup_message_add_flags(message, SOUP_MESSAGE_IDEMPOTENT);
        soup_message_set_request_body_from_bytes(message, nullptr, body_);
        soup_session_send_and_read_async(session_, message, G_PRIORITY_DEFAULT, nullptr, ended,
                                         this);
        g_object_unref(message);
    }

    static void ended(GObject* session, GAsyncResult* result, gpointer self) {
        GError* error = nullptr;
        GBytes* reply = soup_session_send_and_read_finish(SOUP_SESSION(session), result, &error);
        if (reply == nullptr) giveUp(error->message);
        gsize size = 0;
        const auto* bytes = static_cast<const char*>(g_bytes_get_data(reply, &size));
        requireReply({bytes, size});
        g_bytes_unref(reply);
        auto& soup = *static_cast<Soup*>(self);
        --soup.running_;
        if (soup.left_ > 0) soup.begin();
    }

    const int inFlight_;
    GUri* uri_;
    GBytes* body_;
    SoupSession* session_;
    int left_ = 0;
    int running_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    Soup candidate(load);
    return measure(load, candidate);
}
