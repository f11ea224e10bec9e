#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTcpServer>

// A language model server on 127.0.0.1 that answers like llama.cpp's llama-server (the
// OpenAI-compatible chat API) or like Ollama, with the model's answer given as the chunks it
// streams. Requests are kept so that tests can read what was sent.
class ModelTestServer : public QObject
{
public:
    enum class Kind
    {
        llamaServer,
        ollama,
    };

    struct Request
    {
        QByteArray method;
        QByteArray target;
        QByteArray body;
        QJsonObject json() const;
    };

    struct Response
    {
        int status = 200;
        QByteArray contentType = "application/json";
        QList<QByteArray> chunks; // written one after another, a few milliseconds apart
        bool stall = false;       // after the chunks, keep the connection open and say nothing
    };

    explicit ModelTestServer(Kind kind);

    QString origin() const;
    int port() const { return m_server.serverPort(); }

    // The model's answer, split into the pieces the server streams.
    void answer(const QList<QByteArray>& pieces);
    // The model answers in one piece, not as a stream (servers that ignore "stream").
    void answerWhole(const QByteArray& content);
    // The model's answer stops after these pieces and the connection stays silent.
    void stallAfter(const QList<QByteArray>& pieces);
    // The server is up but its model is still loading.
    void setLoading(bool loading) { m_loading = loading; }
    // The chat request fails with this status and error message.
    void failChat(int status, const QString& message);

    const QList<Request>& requests() const { return m_requests; }
    // The last chat request's body.
    QJsonObject chatRequest() const;
    int chatRequests() const;

    void route(const QByteArray& methodAndTarget, Response response)
    {
        m_routes.insert(methodAndTarget, std::move(response));
    }

private:
    void read(QTcpSocket* socket);
    void respond(QTcpSocket* socket, const Response& response);
    static void sendChunks(QPointer<QTcpSocket> socket, const QList<QByteArray>& chunks, qsizetype next,
                           bool stall);
    QByteArray chatPath() const;

    Kind m_kind;
    QTcpServer m_server;
    QHash<QByteArray, Response> m_routes;
    QList<Request> m_requests;
    bool m_loading = false;
};
