#include "support/ModelTestServer.h"

#include "support/HttpRequestReader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace {

QByteArray json(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

ModelTestServer::Response jsonResponse(int status, const QByteArray& body)
{
    return {status, "application/json", {body}, false};
}

QByteArray openAiError(int status, const QString& message, const QString& type)
{
    return json({{u"error"_s, QJsonObject{{u"code"_s, status}, {u"message"_s, message}, {u"type"_s, type}}}});
}

} // namespace

QJsonObject ModelTestServer::Request::json() const
{
    return QJsonDocument::fromJson(body).object();
}

ModelTestServer::ModelTestServer(Kind kind) : m_kind(kind)
{
    m_server.listen(QHostAddress::LocalHost, 0);
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        }
    });
}

QString ModelTestServer::origin() const
{
    return u"http://127.0.0.1:%1"_s.arg(m_server.serverPort());
}

QByteArray ModelTestServer::chatPath() const
{
    return m_kind == Kind::ollama ? "POST /api/chat" : "POST /v1/chat/completions";
}

void ModelTestServer::answer(const QList<QByteArray>& pieces)
{
    Response response;
    if (m_kind == Kind::ollama) {
        response.contentType = "application/x-ndjson";
        for (const QByteArray& piece : pieces)
            response.chunks.append(
                json({{u"model"_s, u"llama3.2:latest"_s},
                      {u"message"_s,
                       QJsonObject{{u"role"_s, u"assistant"_s}, {u"content"_s, QString::fromUtf8(piece)}}},
                      {u"done"_s, false}}) +
                '\n');
        response.chunks.append(
            json({{u"model"_s, u"llama3.2:latest"_s},
                  {u"message"_s, QJsonObject{{u"role"_s, u"assistant"_s}, {u"content"_s, u""_s}}},
                  {u"done"_s, true},
                  {u"done_reason"_s, u"stop"_s}}) +
            '\n');
    } else {
        response.contentType = "text/event-stream";
        for (const QByteArray& piece : pieces) {
            const QJsonObject choice{{u"index"_s, 0},
                                     {u"delta"_s, QJsonObject{{u"content"_s, QString::fromUtf8(piece)}}},
                                     {u"finish_reason"_s, QJsonValue::Null}};
            response.chunks.append(
                "data: " +
                json({{u"object"_s, u"chat.completion.chunk"_s}, {u"choices"_s, QJsonArray{choice}}}) +
                "\n\n");
        }
        const QJsonObject last{{u"index"_s, 0}, {u"delta"_s, QJsonObject()}, {u"finish_reason"_s, u"stop"_s}};
        response.chunks.append("data: " + json({{u"choices"_s, QJsonArray{last}}}) + "\n\n");
        response.chunks.append("data: [DONE]\n\n");
    }
    route(chatPath(), response);
}

void ModelTestServer::answerWhole(const QByteArray& content)
{
    const QJsonObject message{{u"role"_s, u"assistant"_s}, {u"content"_s, QString::fromUtf8(content)}};
    if (m_kind == Kind::ollama)
        route(chatPath(), jsonResponse(200, json({{u"message"_s, message}, {u"done"_s, true}})));
    else
        route(chatPath(),
              jsonResponse(200,
                           json({{u"choices"_s, QJsonArray{QJsonObject{{u"index"_s, 0},
                                                                       {u"message"_s, message},
                                                                       {u"finish_reason"_s, u"stop"_s}}}}})));
}

void ModelTestServer::stallAfter(const QList<QByteArray>& pieces)
{
    answer(pieces);
    Response response = m_routes.value(chatPath());
    // Leave out the end of the stream.
    response.chunks.removeLast();
    if (m_kind == Kind::llamaServer)
        response.chunks.removeLast();
    response.stall = true;
    route(chatPath(), response);
}

void ModelTestServer::failChat(int status, const QString& message)
{
    if (m_kind == Kind::ollama)
        route(chatPath(), jsonResponse(status, json({{u"error"_s, message}})));
    else
        route(chatPath(), jsonResponse(status, openAiError(status, message, u"invalid_request_error"_s)));
}

QJsonObject ModelTestServer::chatRequest() const
{
    for (auto it = m_requests.rbegin(); it != m_requests.rend(); ++it)
        if (it->method + ' ' + it->target == chatPath())
            return it->json();
    return {};
}

int ModelTestServer::chatRequests() const
{
    int count = 0;
    for (const Request& request : m_requests)
        count += request.method + ' ' + request.target == chatPath() ? 1 : 0;
    return count;
}

void ModelTestServer::read(QTcpSocket* socket)
{
    const auto received = readHttpRequest(socket);
    if (!received)
        return;
    const Request request{received->method, received->target, received->body};
    m_requests.append(request);
    const QByteArray key = request.method + ' ' + request.target;

    if (m_routes.contains(key) && !(m_loading && key == chatPath())) {
        respond(socket, m_routes.value(key));
        return;
    }
    const QByteArray loading = openAiError(503, u"Loading model"_s, u"unavailable_error"_s);
    if (m_kind == Kind::ollama) {
        if (key == "GET /api/version")
            respond(socket, jsonResponse(200, R"({"version":"0.5.7"})"));
        else if (key == "GET /api/tags")
            respond(socket, jsonResponse(
                                200, R"({"models":[{"name":"llama3.2:latest","model":"llama3.2:latest"}]})"));
        else
            respond(socket, {404, "text/plain", {"404 page not found"}, false});
        return;
    }
    if (key == "GET /health")
        respond(socket, m_loading ? jsonResponse(503, loading) : jsonResponse(200, R"({"status":"ok"})"));
    else if (key == "GET /v1/models" || key == chatPath())
        respond(
            socket,
            m_loading
                ? jsonResponse(503, loading)
                : jsonResponse(
                      200,
                      R"({"object":"list","data":[{"id":"qwen2.5-7b-instruct-q4_k_m.gguf","object":"model"}]})"));
    else
        respond(socket, jsonResponse(404, openAiError(404, u"File Not Found"_s, u"not_found_error"_s)));
}

void ModelTestServer::respond(QTcpSocket* socket, const Response& response)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
    head += "Content-Type: " + response.contentType + "\r\n";
    head += "Connection: close\r\n\r\n";
    socket->write(head);
    // The pieces go out one by one, as a model generates them, each a while after the previous
    // one has left (not at fixed times, which a late event loop would fire all at once), so
    // that the client reads them one at a time even on a busy machine.
    sendChunks(QPointer<QTcpSocket>(socket), response.chunks, 0, response.stall);
}

void ModelTestServer::sendChunks(QPointer<QTcpSocket> socket, const QList<QByteArray>& chunks, qsizetype next,
                                 bool stall)
{
    QTimer::singleShot(25, socket, [socket, chunks, next, stall] {
        if (!socket)
            return;
        if (next == chunks.size()) {
            if (!stall)
                socket->disconnectFromHost();
            return;
        }
        socket->write(chunks[next]);
        socket->flush();
        sendChunks(socket, chunks, next + 1, stall);
    });
}
