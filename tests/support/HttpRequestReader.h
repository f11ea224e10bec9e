#pragma once

#include <QByteArray>
#include <QHash>
#include <QTcpSocket>

#include <optional>

// The test servers' reading of an HTTP/1.1 request: what has arrived is kept on the socket
// until the head and a body of its Content-Length are complete.
struct HttpRequest
{
    QByteArray method;
    QByteArray target;
    QHash<QByteArray, QByteArray> headers; // lower-case names
    QByteArray body;
};

// The request once it is complete, else nothing (call again on the next readyRead).
inline std::optional<HttpRequest> readHttpRequest(QTcpSocket* socket)
{
    const QByteArray buffer = socket->property("buffer").toByteArray() + socket->readAll();
    socket->setProperty("buffer", buffer);
    const qsizetype end = buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return std::nullopt;
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    HttpRequest request{requestLine.value(0), requestLine.value(1), {}, {}};
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length").toLongLong();
    if (buffer.size() < end + 4 + length)
        return std::nullopt;
    request.body = buffer.mid(end + 4, length);
    socket->setProperty("buffer", QByteArray());
    return request;
}
