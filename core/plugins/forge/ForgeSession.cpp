#include "plugins/forge/ForgeSession.h"

#include "util/Clock.h"

#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <memory>

namespace {

Q_LOGGING_CATEGORY(lcForge, "ledra.forge", QtInfoMsg)

constexpr int maximumRedirects = 10;

bool isHttpScheme(const QUrl& url)
{
    const QString scheme = url.scheme().toLower();
    return scheme == u"http" || scheme == u"https";
}

int statusOf(const QNetworkReply* reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

HttpResponse responseHead(const QNetworkReply* reply)
{
    HttpResponse response;
    response.status = statusOf(reply);
    for (const auto& [name, value] : reply->rawHeaderPairs())
        response.headers.insert(name.toLower(), value);
    return response;
}

std::optional<qint64> retryAfterSeconds(const HttpResponse& response)
{
    bool ok = false;
    const qint64 retryAfter = response.header("retry-after").trimmed().toLongLong(&ok);
    if (ok && retryAfter >= 0)
        return retryAfter;
    const qint64 reset = response.header("x-ratelimit-reset").trimmed().toLongLong(&ok);
    if (ok) {
        const qint64 remaining = reset - Clock::now().toSecsSinceEpoch();
        if (remaining > 0)
            return remaining;
    }
    return std::nullopt;
}

} // namespace

ForgeSession::ForgeSession(QObject* parent) : QObject(parent), m_network(new QNetworkAccessManager(this)) {}

ForgeSession::~ForgeSession() = default;

QNetworkRequest ForgeSession::request(const QUrl& url) const
{
    QNetworkRequest request(url);
    request.setTransferTimeout(m_timeoutMs);
    // Redirects are checked one by one (see start()); GitHub's archive links redirect to
    // another host.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(maximumRedirects);
    const QString version = QCoreApplication::applicationVersion();
    request.setHeader(QNetworkRequest::UserAgentHeader,
                      version.isEmpty() ? QStringLiteral("Ledra") : QStringLiteral("Ledra/") + version);
    return request;
}

QNetworkReply* ForgeSession::start(const QNetworkRequest& request)
{
    QNetworkReply* reply = m_network->get(request);
    auto current = std::make_shared<QUrl>(request.url());
    connect(reply, &QNetworkReply::redirected, reply, [reply, current](const QUrl& target) {
        const QUrl next = current->resolved(target);
        const bool downgrade = current->scheme().toLower() == u"https" && next.scheme().toLower() != u"https";
        if (!isHttpScheme(next) || downgrade) {
            qCWarning(lcForge, "ForgeClient: refused redirect from %s to %s", qPrintable(current->toString()),
                      qPrintable(next.toString()));
            reply->abort();
            return;
        }
        *current = next;
        Q_EMIT reply->redirectAllowed();
    });
    return reply;
}

void ForgeSession::get(const QNetworkRequest& request, std::function<void(HttpResponse)> done)
{
    QNetworkReply* reply = start(request);
    auto body = std::make_shared<QByteArray>();
    auto tooLarge = std::make_shared<bool>(false);
    connect(reply, &QNetworkReply::readyRead, reply, [reply, body, tooLarge] {
        if (body->size() + reply->bytesAvailable() > defaultResponseLimit) {
            *tooLarge = true;
            reply->abort();
            return;
        }
        body->append(reply->readAll());
    });
    connect(reply, &QNetworkReply::finished, this, [reply, body, tooLarge, done = std::move(done)] {
        reply->deleteLater();
        HttpResponse response = responseHead(reply);
        body->append(reply->readAll());
        response.body = std::move(*body);
        // A body cut short (over the limit, timed out, connection dropped) counts as no answer.
        if (*tooLarge || (reply->error() != QNetworkReply::NoError && response.isSuccess()))
            response.status = 0;
        done(std::move(response));
    });
}

void ForgeSession::download(const QNetworkRequest& request, const QString& filePath, ForgeCallback<Done> done)
{
    auto file = std::make_shared<QFile>(filePath);
    if (!file->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qCWarning(lcForge, "ForgeClient: cannot write %s: %s", qPrintable(filePath),
                  qPrintable(file->errorString()));
        done(ForgeError::invalidResponse());
        return;
    }
    QNetworkReply* reply = start(request);
    const qint64 limit = m_downloadLimit;
    // An error page is kept in memory (it may be a rate limit to report); only a successful
    // body goes into the file.
    auto errorBody = std::make_shared<QByteArray>();
    auto written = std::make_shared<qint64>(0);
    auto tooLarge = std::make_shared<bool>(false);
    auto writeFailed = std::make_shared<bool>(false);

    connect(reply, &QNetworkReply::metaDataChanged, reply, [reply, limit, tooLarge] {
        bool known = false;
        const qint64 announced = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong(&known);
        if (known && announced > limit) {
            *tooLarge = true;
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::readyRead, reply,
            [reply, file, limit, errorBody, written, tooLarge, writeFailed] {
                const QByteArray chunk = reply->readAll();
                const int status = statusOf(reply);
                if (status < 200 || status >= 300) {
                    if (errorBody->size() < defaultResponseLimit)
                        errorBody->append(chunk.left(defaultResponseLimit - errorBody->size()));
                    return;
                }
                *written += chunk.size();
                if (*written > limit) {
                    *tooLarge = true;
                    reply->abort();
                    return;
                }
                if (file->write(chunk) != chunk.size()) {
                    *writeFailed = true;
                    reply->abort();
                }
            });
    connect(reply, &QNetworkReply::finished, this,
            [reply, file, filePath, errorBody, tooLarge, writeFailed, done = std::move(done)] {
                reply->deleteLater();
                HttpResponse response = responseHead(reply);
                response.body = std::move(*errorBody);
                const bool flushed = file->flush();
                file->close();
                std::optional<ForgeError> error;
                if (*tooLarge) {
                    error = ForgeError::downloadTooLarge();
                } else if (*writeFailed || !flushed) {
                    qCWarning(lcForge, "ForgeClient: cannot write %s: %s", qPrintable(filePath),
                              qPrintable(file->errorString()));
                    error = ForgeError::invalidResponse();
                } else if (reply->error() != QNetworkReply::NoError && response.isSuccess()) {
                    // Cut off in the middle of the body (timeout, dropped connection).
                    error = ForgeError::invalidResponse();
                } else {
                    error = failureOf(response);
                }
                if (error) {
                    QFile::remove(filePath);
                    done(*error);
                    return;
                }
                done(Done{});
            });
}

std::optional<ForgeError> ForgeSession::failureOf(const HttpResponse& response)
{
    if (response.status == 429 ||
        (response.status == 403 && response.header("x-ratelimit-remaining").trimmed() == "0"))
        return ForgeError::rateLimited(retryAfterSeconds(response));
    if (!response.isSuccess())
        return ForgeError::invalidResponse();
    return std::nullopt;
}
