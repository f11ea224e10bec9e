#include "support/ForgeTestServer.h"

#include "support/HttpRequestReader.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

#include <array>
#include <memory>

namespace {

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 302:
        return "Found";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 409:
        return "Conflict";
    case 429:
        return "Too Many Requests";
    default:
        return "Status";
    }
}

} // namespace

ForgeTestServer::ForgeTestServer()
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
        }
    });
}

QString ForgeTestServer::origin() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort());
}

int ForgeTestServer::count(const QByteArray& target) const
{
    int n = 0;
    for (const Request& request : m_requests)
        n += request.target == target ? 1 : 0;
    return n;
}

void ForgeTestServer::answer(QTcpSocket* socket)
{
    const auto received = readHttpRequest(socket);
    if (!received)
        return;
    const Request request{received->target, received->headers};
    m_requests.append(request);

    const Response response =
        m_routes.value(request.target, Response::json(R"({"message":"404 Not Found"})", 404));
    if (response.silent)
        return;
    QByteArray head =
        "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    head += "Connection: close\r\n";
    if (!response.withoutLength)
        head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    for (const auto& [name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    socket->write(head + "\r\n" + response.body);
    socket->disconnectFromHost();
}

namespace {

quint32 crc32(const QByteArray& data)
{
    static const std::array<quint32, 256> table = [] {
        std::array<quint32, 256> result{};
        for (quint32 i = 0; i < 256; ++i) {
            quint32 c = i;
            for (int k = 0; k < 8; ++k)
                c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
            result[i] = c;
        }
        return result;
    }();
    quint32 crc = 0xFFFFFFFFu;
    for (const char byte : data)
        crc = table[(crc ^ static_cast<quint8>(byte)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

void put16(QByteArray& out, quint32 value)
{
    out.append(char(value & 0xFF));
    out.append(char((value >> 8) & 0xFF));
}

void put32(QByteArray& out, quint32 value)
{
    put16(out, value & 0xFFFF);
    put16(out, value >> 16);
}

} // namespace

QByteArray makeZip(const QList<std::pair<QString, QByteArray>>& entries)
{
    QByteArray archive;
    QByteArray directory;
    for (const auto& [name, data] : entries) {
        const QByteArray fileName = name.toUtf8();
        const quint32 crc = crc32(data);
        const auto offset = static_cast<quint32>(archive.size());
        auto common = [&](QByteArray& out) {
            put16(out, 20);     // version needed
            put16(out, 0x0800); // names in UTF-8
            put16(out, 0);      // stored
            put16(out, 0);      // time
            put16(out, 0x21);   // date: 1980-01-01
            put32(out, crc);
            put32(out, static_cast<quint32>(data.size()));
            put32(out, static_cast<quint32>(data.size()));
            put16(out, static_cast<quint32>(fileName.size()));
            put16(out, 0); // extra field length
        };
        put32(archive, 0x04034b50);
        common(archive);
        archive += fileName + data;

        put32(directory, 0x02014b50);
        put16(directory, 20); // version made by
        common(directory);
        put16(directory, 0); // comment length
        put16(directory, 0); // disk
        put16(directory, 0); // internal attributes
        put32(directory, name.endsWith(u'/') ? 0x10 : 0);
        put32(directory, offset);
        directory += fileName;
    }
    const auto directoryOffset = static_cast<quint32>(archive.size());
    archive += directory;
    put32(archive, 0x06054b50);
    put16(archive, 0);
    put16(archive, 0);
    put16(archive, static_cast<quint32>(entries.size()));
    put16(archive, static_cast<quint32>(entries.size()));
    put32(archive, static_cast<quint32>(directory.size()));
    put32(archive, directoryOffset);
    put16(archive, 0);
    return archive;
}

QByteArray makePluginZip(const QString& top, const QString& name, const QString& version, bool withMain,
                         const QString& url)
{
    const QString prefix = top.isEmpty() ? QString() : top + u'/';
    QJsonObject fields{{QStringLiteral("name"), name}, {QStringLiteral("version"), version}};
    if (!url.isEmpty())
        fields.insert(QStringLiteral("url"), url);
    const QByteArray manifest = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    QList<std::pair<QString, QByteArray>> entries;
    if (!prefix.isEmpty())
        entries.append({prefix, {}});
    entries.append({prefix + QStringLiteral("plugin.json"), manifest});
    if (withMain)
        entries.append(
            {prefix + QStringLiteral("main.js"), "module.exports = {};\n// " + version.toUtf8() + '\n'});
    return makeZip(entries);
}
