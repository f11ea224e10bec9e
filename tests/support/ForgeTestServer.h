#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QTcpServer>

#include <functional>
#include <optional>
#include <utility>

// A small HTTP/1.1 server on 127.0.0.1 that answers like a forge's REST interface: GET only,
// one request per connection. Routes match the request target exactly (path and query as
// sent, so "%2F" stays visible); anything else is a 404 with a JSON body, as forges answer.
class ForgeTestServer : public QObject
{
public:
    struct Request
    {
        QByteArray target;                     // "/api/v4/projects/a%2Fb/releases/permalink/latest"
        QHash<QByteArray, QByteArray> headers; // lower-case names
    };

    struct Response
    {
        int status = 200;
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;
        // Never answer (for timeouts).
        bool silent = false;
        // Leave out Content-Length; the end of the body is the closed connection.
        bool withoutLength = false;

        static Response json(const QByteArray& body, int status = 200) { return {status, {}, body}; }
        static Response redirect(const QString& location)
        {
            return {302, {{"Location", location.toUtf8()}}, {}};
        }
    };

    ForgeTestServer();

    // "http://127.0.0.1:PORT"
    QString origin() const;
    QString url(const QString& path) const { return origin() + path; }

    void route(const QByteArray& target, Response response) { m_routes.insert(target, std::move(response)); }
    // Answers like the forge's version or meta request, so that probing recognises it.
    void serveGitHub()
    {
        route("/api/v3/meta", Response::json(R"({"verifiable_password_authentication":false})"));
    }
    void serveGitLab()
    {
        route("/api/v4/version", Response::json(R"({"version":"16.8.0","revision":"abc"})"));
    }
    void serveGitea() { route("/api/v1/version", Response::json(R"({"version":"1.21.4"})")); }

    const QList<Request>& requests() const { return m_requests; }
    int count(const QByteArray& target) const;
    void clearRequests() { m_requests.clear(); }

private:
    void answer(QTcpSocket* socket);

    QTcpServer m_server;
    QHash<QByteArray, Response> m_routes;
    QList<Request> m_requests;
};

// A stored (uncompressed) zip archive of the given entries; names ending in "/" are folders.
QByteArray makeZip(const QList<std::pair<QString, QByteArray>>& entries);

// An archive holding a plugin folder: "plugin.json" with the name, version and repository link
// (when given), and "main.js" unless left out, under `top` ("" for the archive's root).
QByteArray makePluginZip(const QString& top, const QString& name, const QString& version,
                         bool withMain = true, const QString& url = {});
