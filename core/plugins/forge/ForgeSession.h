#pragma once

#include "plugins/forge/Forge.h"

#include <QByteArray>
#include <QHash>
#include <QNetworkRequest>
#include <QObject>

class QNetworkAccessManager;
class QNetworkReply;

// A finished HTTP exchange. `status` is 0 when no response arrived (refused connection,
// timeout, refused redirect, body over the limit).
struct HttpResponse
{
    int status = 0;
    QByteArray body;
    // Header names in lower case.
    QHash<QByteArray, QByteArray> headers;

    bool isSuccess() const { return status >= 200 && status < 300; }
    QByteArray header(const QByteArray& lowerCaseName) const { return headers.value(lowerCaseName); }
};

// The HTTP side of the forge client: GET requests with a transfer timeout, redirects followed
// only to http and https (and never from https down to http), and size limits so that a
// misbehaving server cannot fill memory or disk. Lives on one thread; callbacks run there.
class ForgeSession : public QObject
{
    Q_OBJECT
public:
    static constexpr int defaultTimeoutMs = 30'000;
    static constexpr qint64 defaultResponseLimit = 8ll * 1024 * 1024;
    static constexpr qint64 defaultDownloadLimit = 50ll * 1024 * 1024;

    explicit ForgeSession(QObject* parent = nullptr);
    ~ForgeSession() override;

    // The time without any data after which a request is given up.
    void setTimeout(int milliseconds) { m_timeoutMs = milliseconds; }
    void setDownloadLimit(qint64 bytes) { m_downloadLimit = bytes; }

    // A request with the program's user agent and the session's timeout and redirect rules.
    QNetworkRequest request(const QUrl& url) const;

    // The body is kept in memory, up to the response limit.
    void get(const QNetworkRequest& request, std::function<void(HttpResponse)> done);

    // Streams the body into `filePath` (created or truncated), up to the download limit.
    void download(const QNetworkRequest& request, const QString& filePath, ForgeCallback<Done> done);

    // Rate limits (429, or 403 with no requests remaining) and every other non-success
    // status, or nullopt for a successful response.
    static std::optional<ForgeError> failureOf(const HttpResponse& response);

private:
    QNetworkReply* start(const QNetworkRequest& request);

    QNetworkAccessManager* m_network;
    int m_timeoutMs = defaultTimeoutMs;
    qint64 m_downloadLimit = defaultDownloadLimit;
};
