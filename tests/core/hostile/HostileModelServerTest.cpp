// A language model server on 127.0.0.1 that turns against the client: it sends the invoice text
// on to another host, streams without end, or drips one token at a time for ever.
#include "extraction/TextParser.h"
#include "support/HttpRequestReader.h"
#include "util/Bounds.h"
#include "util/WaitFor.h"

#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

// Answers the status requests like llama-server and the chat request with `chat`.
class HostileServer : public QObject
{
public:
    using Chat = std::function<void(QTcpSocket*)>;

    explicit HostileServer(const QHostAddress& address = QHostAddress::LocalHost, Chat chat = {})
        : m_chat(std::move(chat))
    {
        m_listening = m_server.listen(address, 0);
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
            }
        });
    }

    bool listening() const { return m_listening; }
    QString origin() const
    {
        return u"http://%1:%2"_s.arg(m_server.serverAddress().toString()).arg(m_server.serverPort());
    }
    const QList<HttpRequest>& requests() const { return m_requests; }

    static void reply(QTcpSocket* socket, const QByteArray& head, const QByteArray& body)
    {
        socket->write("HTTP/1.1 " + head + "\r\nContent-Length: " + QByteArray::number(body.size()) +
                      "\r\nConnection: close\r\n\r\n" + body);
        socket->disconnectFromHost();
    }

private:
    void read(QTcpSocket* socket)
    {
        const auto request = readHttpRequest(socket);
        if (!request)
            return;
        m_requests.append(*request);
        const QByteArray key = request->method + ' ' + request->target;
        if (key == "GET /health")
            reply(socket, "200 OK\r\nContent-Type: application/json", R"({"status":"ok"})");
        else if (key == "GET /v1/models")
            reply(socket, "200 OK\r\nContent-Type: application/json", R"({"data":[{"id":"m.gguf"}]})");
        else if (key == "POST /v1/chat/completions" && m_chat)
            m_chat(socket);
        else
            reply(socket, "404 Not Found\r\nContent-Type: application/json", "{}");
    }

    QTcpServer m_server;
    Chat m_chat;
    QList<HttpRequest> m_requests;
    bool m_listening = false;
};

QByteArray event(const QByteArray& content)
{
    return R"(data: {"choices":[{"index":0,"delta":{"content":")" + content + "\"}}]}\n\n";
}

// Writes `next()` whenever the socket has room, until the client goes away.
void streamForever(QTcpSocket* socket, std::function<QByteArray()> next, int intervalMs = 0)
{
    socket->write("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n");
    auto* timer = new QTimer(socket);
    timer->setInterval(intervalMs);
    QObject::connect(timer, &QTimer::timeout, socket, [socket, next] {
        if (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < 1024 * 1024)
            socket->write(next());
    });
    timer->start();
}

struct Outcome
{
    std::optional<QString> error;
    bool finished = false;
};

Outcome extract(const QString& origin, int maxDurationMs = 600000)
{
    TextParserSettings settings;
    settings.serverUrl = QUrl(origin);
    settings.stallTimeoutMs = 2000;
    settings.probeTimeoutMs = 2000;
    settings.maxDurationMs = maxDurationMs;
    TextParser parser(settings);
    Outcome outcome;
    const auto reported = waitForReport<bool>(
        [&](auto report) {
            QObject::connect(&parser, &TextParser::finished, [&outcome, report](const ExtractedInvoice&) {
                outcome.finished = true;
                report(true);
            });
            QObject::connect(&parser, &TextParser::failed, [&outcome, report](const QString& message) {
                outcome.error = message;
                report(false);
            });
            parser.extract(u"Rechnung an Becker GmbH, IBAN DE02 1203 0000 0000 2020 51"_s);
        },
        30000);
    EXPECT_TRUE(reported.has_value()) << "no answer in time";
    return outcome;
}

} // namespace

TEST(HostileModelServerTest, ARedirectToAnotherHostNeverCarriesTheInvoiceText)
{
    // The catcher stands for the other host: 127.0.0.2 is another address of this computer
    // (another port of 127.0.0.1 where that address is missing, another origin all the same).
    const HostileServer::Chat accept = [](QTcpSocket* socket) {
        HostileServer::reply(socket, "200 OK\r\nContent-Type: application/json", "{}");
    };
    auto catcherServer = std::make_unique<HostileServer>(QHostAddress(u"127.0.0.2"_s), accept);
    if (!catcherServer->listening())
        catcherServer = std::make_unique<HostileServer>(QHostAddress::LocalHost, accept);
    const HostileServer& catcher = *catcherServer;
    ASSERT_TRUE(catcher.listening());
    for (const QByteArray status : {"307 Temporary Redirect", "308 Permanent Redirect", "302 Found"}) {
        HostileServer server(QHostAddress::LocalHost, [&](QTcpSocket* socket) {
            HostileServer::reply(
                socket, status + "\r\nLocation: " + catcher.origin().toUtf8() + "/v1/chat/completions", {});
        });
        const Outcome outcome = extract(server.origin());
        ASSERT_TRUE(outcome.error) << status.constData();
        EXPECT_TRUE(outcome.error->contains(u"sent the request on to "_s + catcher.origin()))
            << qPrintable(*outcome.error);
        EXPECT_TRUE(catcher.requests().isEmpty()) << status.constData() << ": the other host got "
                                                  << catcher.requests().first().body.left(200).constData();
    }
}

TEST(HostileModelServerTest, AnEndlessStreamIsStoppedAtTheSizeCap)
{
    // Many small events, each a piece of the answer; then one line that never ends.
    const QByteArray piece = event(QByteArray(4096, 'a'));
    HostileServer events(QHostAddress::LocalHost, [&](QTcpSocket* socket) {
        streamForever(socket, [piece] { return piece; });
        socket->write(event("{\\\"note\\\":\\\""));
    });
    Outcome outcome = extract(events.origin());
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->contains(u"sent more than 1 MB"_s)) << qPrintable(*outcome.error);

    const QByteArray endless(64 * 1024, 'z');
    HostileServer line(QHostAddress::LocalHost,
                       [&](QTcpSocket* socket) { streamForever(socket, [endless] { return endless; }); });
    outcome = extract(line.origin());
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->contains(u"sent more than 1 MB"_s)) << qPrintable(*outcome.error);
}

TEST(HostileModelServerTest, AStreamThatNeverEndsIsStoppedAtTheTimeCap)
{
    // A token every 20 ms keeps the stall timer happy for ever.
    HostileServer server(QHostAddress::LocalHost, [](QTcpSocket* socket) {
        streamForever(
            socket, [] { return event("a"); }, 20);
        socket->write(event("{\\\"note\\\":\\\""));
    });
    const Outcome outcome = extract(server.origin(), 1500);
    ASSERT_TRUE(outcome.error);
    EXPECT_TRUE(outcome.error->contains(u"took longer than"_s)) << qPrintable(*outcome.error);
}
