#pragma once

#include "extraction/ExtractedInvoice.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <functional>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class QSettings;
class QTimer;
struct Invoice;
struct Profile;

// Where the local language model runs. Invoice text is private: it only goes to this computer or
// the local network unless the user allowed another host.
struct TextParserSettings
{
    static constexpr char serverUrlKey[] = "TextParser.serverURL";
    static constexpr char modelKey[] = "TextParser.model";
    static constexpr char allowRemoteHostKey[] = "TextParser.allowRemoteHost";
    static constexpr char defaultServerUrl[] = "http://127.0.0.1:8080";

    QUrl serverUrl{QString::fromLatin1(defaultServerUrl)};
    // Empty: the model the server has loaded (llama-server, LM Studio) or its first one (Ollama).
    QString model;
    bool allowRemoteHost = false;
    // How long the server may take to answer a status request, and how long it may stay silent
    // while extracting (a model on a CPU can think a minute before its first word).
    int probeTimeoutMs = 3000;
    int stallTimeoutMs = 120000;
    // How long one extraction may take in all, however steadily the server keeps sending.
    int maxDurationMs = 600000;

    static TextParserSettings load(const QSettings& settings);
    void save(QSettings& settings) const;
};

struct TextParserAvailability
{
    bool available = false;
    QString message; // why not, with a hint how to change that

    static TextParserAvailability makeAvailable() { return {true, {}}; }
    static TextParserAvailability unavailable(QString message) { return {false, std::move(message)}; }
};

// Which extractor drafted an invoice; the views and the command line say so.
enum class ExtractorKind
{
    model,
    offline
};

// Drafts invoices from pasted text with a local language model server that speaks the
// OpenAI-compatible chat API (llama.cpp's llama-server, LM Studio) or Ollama's own, generating
// against the schema of ExtractedInvoice. One extraction at a time; each is a fresh chat.
class TextParser : public QObject
{
    Q_OBJECT
public:
    // Sent as the system message, exactly.
    static const QString instructions;

    explicit TextParser(TextParserSettings settings, QObject* parent = nullptr);
    ~TextParser() override;

    const TextParserSettings& settings() const { return m_settings; }
    // Whether the address may receive invoice text: loopback, private and link-local addresses
    // and local names, or any host once the user allowed it.
    static bool isPermittedHost(const QUrl& url, bool allowRemoteHost);

    // Asks the server; `done` runs on this object's thread.
    void checkAvailability(std::function<void(TextParserAvailability)> done);
    // The model that answered the last availability check, and the kind of server.
    QString modelName() const { return m_model; }
    // "llama-server model qwen2.5-7b at http://127.0.0.1:8080", for the views and the CLI.
    QString describe() const;

    // Starts an extraction: partiallyGenerated while the answer grows, then finished or failed.
    void extract(const QString& text);
    void cancel();
    bool isRunning() const { return !m_reply.isNull() || m_checking; }

    // A new invoice (as created for the active profile) filled from the result: every present
    // field replaces the preset; a line without a VAT rate takes the profile's. Totals are never
    // taken from the text, they follow from the lines.
    static void fill(Invoice& invoice, const ExtractedInvoice& extracted, const Profile& profile);

Q_SIGNALS:
    void partiallyGenerated(const PartiallyGeneratedExtractedInvoice& partial);
    void finished(const ExtractedInvoice& result);
    void failed(const QString& message);

private:
    enum class Api
    {
        openAi,
        ollama
    };

    void probe(const QString& path, std::function<void(int status, QByteArray body, bool reached)> done);
    void probeOllama(std::function<void(TextParserAvailability)> done);
    void probeOpenAi(std::function<void(TextParserAvailability)> done);
    void startChat(const QString& text);
    void receive();
    void consume(QNetworkReply* reply, const QByteArray& chunk);
    void finish();
    void fail(const QString& message);
    void publishPartial();
    QUrl endpoint(const QString& path) const;
    // Redirects are followed only within the server's own origin (scheme, host and port); any
    // other target is refused and the reply aborted, so invoice text never leaves for a host
    // that the permitted-host check did not see.
    void guardRedirects(QNetworkReply* reply);
    void stop(bool TextParser::*reason);

    TextParserSettings m_settings;
    QNetworkAccessManager* m_network;
    QTimer* m_stallTimer;
    QPointer<QNetworkReply> m_reply;
    bool m_checking = false;
    bool m_ready = false; // the last availability check found the server ready
    int m_run = 0;        // counts extractions, so that a late answer of a cancelled one is dropped
    Api m_api = Api::openAi;
    QString m_serverName;
    QString m_model;
    QByteArray m_pending;       // received, not yet split into events
    QByteArray m_content;       // the model's answer so far
    QByteArray m_wholeResponse; // a server that ignores streaming answers in one piece
    QString m_generationId;
    std::optional<PartiallyGeneratedExtractedInvoice> m_lastPartial;
    QString m_serverError;
    bool m_stalled = false;
    bool m_tooLong = false;    // over the answer or stream size cap
    bool m_tooSlow = false;    // over the total time cap
    bool m_redirected = false; // a redirect to another origin was refused
    QUrl m_refusedRedirect;
    QTimer* m_deadlineTimer;
    qsizetype m_scanned = 0; // how much of m_pending holds no newline
    qint64 m_received = 0;   // bytes of the current answer, framing included
    qsizetype m_publishedSize = 0;
};
