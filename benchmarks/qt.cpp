// Qt 6 Network, as its manual advises: one access manager, one prepared request, one event loop.

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>

#include "benchmarks/Workload.h"

using namespace kivo::benchmarks;

namespace {

class Qt6 {
public:
    explicit Qt6(const Load& load)
        : inFlight_(load.inFlight),
          request_(QUrl(QString::fromStdString(load.url()))),
          body_(body.data(), static_cast<qsizetype>(body.size())) {
        manager_.setProxy(QNetworkProxy::NoProxy);
        for (const auto& [name, value] : headers) request_.setRawHeader(name, value);
        if (!load.usesTLS()) return;
        QSslConfiguration trust = QSslConfiguration::defaultConfiguration();
        trust.setCaCertificates(QSslCertificate::fromPath(QString::fromStdString(load.trust)));
        if (load.scheme == "h2")
            trust.setAllowedNextProtocols({QSslConfiguration::ALPNProtocolHTTP2});
        request_.setSslConfiguration(trust);
    }

    void run(int calls) {
        left_ = calls;
        running_ = 0;
        while (running_ < inFlight_ && left_ > 0) begin();
        loop_.exec();
    }

private:
    void begin() {
        --left_;
        ++running_;
        QNetworkReply* reply = manager_.post(request_, body_);
        QObject::connect(reply, &QNetworkReply::finished, [this, reply] { ended(reply); });
    }

    void ended(QNetworkReply* reply) {
        if (reply->error() != QNetworkReply::NoError) giveUp(reply->errorString().toStdString());
        requireReply(reply->readAll().toStdString());
        reply->deleteLater();
        --running_;
        if (left_ > 0) begin();
        if (running_ == 0) loop_.quit();
    }

    const int inFlight_;
    QNetworkAccessManager manager_;
    QNetworkRequest request_;
    const QByteArray body_;
    QEventLoop loop_;
    int left_ = 0;
    int running_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
    const Load load(argc, argv);
    const QCoreApplication application(argc, argv);
    Qt6 candidate(load);
    return measure(load, candidate);
}
