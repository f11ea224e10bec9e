#include "extraction/TextParser.h"

#include "extraction/PartialJson.h"
#include "l10n/Strings.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "util/Bounds.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSettings>
#include <QTimer>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

const QString TextParser::instructions =
    u"You extract invoice details from free-form text such as a pasted email, a note, or an address block. "
    u"The text may be in German or English and may contain only a recipient address, only a list of "
    u"services, or a complete invoice.\n\nRules:\n- Only extract information that is actually present. Never "
    u"invent, guess, or fill in placeholder values. Leave any unknown field empty.\n- Copy names, addresses, "
    u"and numbers verbatim; do not translate or reformat them, other than converting dates to yyyy-MM-dd and "
    u"using ISO codes where asked.\n- Interpret prices as net unit prices. Numbers may use a decimal comma "
    u"(e.g. \"1.234,50\" means 1234.50).\n- Do not compute totals or taxes — only capture the per-line "
    u"values that are stated."_s;

namespace {

QString ui(QStringView key)
{
    return Strings::ui(key);
}

QString origin(const QUrl& url)
{
    return url
        .adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::StripTrailingSlash)
        .toString();
}

QString notReachable(const QUrl& url)
{
    return ui(u"No language model server answers at %1. Start one on this computer, for example with "
              u"“llama-server -m MODEL.gguf --port 8080” or “ollama serve”, or enter its "
              u"address in Preferences.")
        .arg(origin(url));
}

QString stillLoading()
{
    return ui(u"The language model server is still loading its model. Try again in a little while.");
}

QString otherState(const QUrl& url, int status)
{
    return ui(u"The local language model isn’t available right now.") + u" "_s +
           ui(u"The server at %1 answered with status %2; check that it is a llama-server, Ollama or LM "
              u"Studio "
              u"server and that its model is loaded.")
               .arg(origin(url))
               .arg(status);
}

// A server error's own words: {"error":{"message":…}} (OpenAI style) or {"error":"…"} (Ollama).
QString errorMessageOf(const QByteArray& body)
{
    const QJsonObject object = QJsonDocument::fromJson(body).object();
    const QJsonValue error = object.value(u"error"_s);
    if (error.isString())
        return error.toString();
    if (error.isObject())
        return error.toObject().value(u"message"_s).toString();
    return {};
}

bool isLoadingError(int status, const QByteArray& body)
{
    return status == 503 || errorMessageOf(body).contains(u"loading"_s, Qt::CaseInsensitive);
}

std::optional<QDate> isoDate(const std::optional<QString>& text)
{
    if (!text)
        return std::nullopt;
    const QDate date = QDate::fromString(*text, u"yyyy-MM-dd"_s);
    if (!date.isValid())
        return std::nullopt;
    return date;
}

Unit unitOf(ExtractedUnit unit)
{
    switch (unit) {
    case ExtractedUnit::piece:
        return Unit::piece;
    case ExtractedUnit::hour:
        return Unit::hour;
    case ExtractedUnit::day:
        return Unit::day;
    case ExtractedUnit::week:
        return Unit::week;
    case ExtractedUnit::lumpSum:
        return Unit::lumpSum;
    }
    return Unit::piece;
}

void take(QString& target, const std::optional<QString>& value)
{
    if (value && !value->trimmed().isEmpty())
        target = value->trimmed();
}

} // namespace

TextParserSettings TextParserSettings::load(const QSettings& settings)
{
    TextParserSettings result;
    const QString url = settings.value(QLatin1StringView(serverUrlKey)).toString().trimmed();
    if (settings.contains(QLatin1StringView(serverUrlKey)))
        result.serverUrl = QUrl::fromUserInput(url);
    result.model = settings.value(QLatin1StringView(modelKey)).toString().trimmed();
    result.allowRemoteHost = settings.value(QLatin1StringView(allowRemoteHostKey), false).toBool();
    return result;
}

void TextParserSettings::save(QSettings& settings) const
{
    settings.setValue(QLatin1StringView(serverUrlKey), serverUrl.toString());
    settings.setValue(QLatin1StringView(modelKey), model);
    settings.setValue(QLatin1StringView(allowRemoteHostKey), allowRemoteHost);
}

TextParser::TextParser(TextParserSettings settings, QObject* parent)
    : QObject(parent), m_settings(std::move(settings)), m_network(new QNetworkAccessManager(this)),
      m_stallTimer(new QTimer(this)), m_deadlineTimer(new QTimer(this))
{
    m_network->setRedirectPolicy(QNetworkRequest::UserVerifiedRedirectPolicy);
    m_stallTimer->setSingleShot(true);
    connect(m_stallTimer, &QTimer::timeout, this, [this] { stop(&TextParser::m_stalled); });
    m_deadlineTimer->setSingleShot(true);
    connect(m_deadlineTimer, &QTimer::timeout, this, [this] { stop(&TextParser::m_tooSlow); });
}

void TextParser::stop(bool TextParser::*reason)
{
    this->*reason = true;
    if (m_reply)
        m_reply->abort();
}

void TextParser::guardRedirects(QNetworkReply* reply)
{
    connect(reply, &QNetworkReply::redirected, this, [this, reply](const QUrl& target) {
        const QUrl server = m_settings.serverUrl;
        const QUrl resolved = reply->url().resolved(target);
        const bool sameOrigin = resolved.scheme() == server.scheme() &&
                                resolved.host().compare(server.host(), Qt::CaseInsensitive) == 0 &&
                                resolved.port(server.scheme() == u"https"_s ? 443 : 80) ==
                                    server.port(server.scheme() == u"https"_s ? 443 : 80);
        if (sameOrigin) {
            Q_EMIT reply->redirectAllowed();
            return;
        }
        if (reply == m_reply) {
            m_redirected = true;
            m_refusedRedirect = resolved;
        }
        reply->abort();
    });
}

TextParser::~TextParser()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
    }
}

bool TextParser::isPermittedHost(const QUrl& url, bool allowRemoteHost)
{
    const QString host = url.host().toLower();
    if (host.isEmpty())
        return false;
    if (allowRemoteHost)
        return true;
    const QHostAddress address(host);
    if (address.isNull()) {
        // Names: this computer, or names that only resolve on the local network.
        static const QRegularExpression localName(
            uR"(^(localhost|[^.]+|.*\.(localhost|local|lan|home\.arpa|internal))$)"_s);
        return localName.match(host).hasMatch();
    }
    if (address.isLoopback() || address.isLinkLocal() || address.isUniqueLocalUnicast())
        return true;
    static const QList<std::pair<QHostAddress, int>> privateNetworks = {
        QHostAddress::parseSubnet(u"10.0.0.0/8"_s),
        QHostAddress::parseSubnet(u"172.16.0.0/12"_s),
        QHostAddress::parseSubnet(u"192.168.0.0/16"_s),
    };
    for (const auto& [network, length] : privateNetworks)
        if (address.isInSubnet(network, length))
            return true;
    return false;
}

QUrl TextParser::endpoint(const QString& path) const
{
    QUrl url = m_settings.serverUrl;
    QString base = url.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    // "http://host:8080/v1" and "http://host:8080" both work: the paths below carry "/v1".
    if (base.endsWith(u"/v1"_s) && path.startsWith(u"/v1/"_s))
        base.chop(3);
    url.setPath(base + path);
    return url;
}

void TextParser::probe(const QString& path, std::function<void(int, QByteArray, bool)> done)
{
    QNetworkRequest request(endpoint(path));
    request.setTransferTimeout(m_settings.probeTimeoutMs);
    QNetworkReply* reply = m_network->get(request);
    guardRedirects(reply);
    // A status answer is a few hundred bytes; one that goes on and on is no server of ours.
    connect(reply, &QNetworkReply::readyRead, this, [reply] {
        if (reply->bytesAvailable() > Bounds::modelAnswerBytes)
            reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [reply, done = std::move(done)] {
        reply->deleteLater();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        const bool answered = status.isValid() && reply->error() != QNetworkReply::OperationCanceledError;
        done(status.toInt(), answered ? reply->readAll() : QByteArray(), answered);
    });
}

void TextParser::checkAvailability(std::function<void(TextParserAvailability)> reported)
{
    auto done = [this, reported = std::move(reported)](const TextParserAvailability& availability) {
        m_ready = availability.available;
        reported(availability);
    };
    const QUrl& url = m_settings.serverUrl;
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != u"http"_s && url.scheme() != u"https"_s)) {
        done(TextParserAvailability::unavailable(
            ui(u"No language model server is set. Enter the address of a server on this computer "
               u"(llama-server, Ollama or LM Studio) in Preferences.")));
        return;
    }
    if (!isPermittedHost(url, m_settings.allowRemoteHost)) {
        done(TextParserAvailability::unavailable(
            ui(u"The language model server %1 is neither on this computer nor in the local network. Invoice "
               u"text is only sent there after you allow other hosts in Preferences.")
                .arg(origin(url))));
        return;
    }
    // Ollama answers its version; the others don't have that path.
    probe(u"/api/version"_s, [this, done](int status, const QByteArray& body, bool reached) {
        if (!reached) {
            done(TextParserAvailability::unavailable(notReachable(m_settings.serverUrl)));
            return;
        }
        if (status == 200 && QJsonDocument::fromJson(body).object().contains(u"version"_s))
            probeOllama(done);
        else
            probeOpenAi(done);
    });
}

void TextParser::probeOllama(std::function<void(TextParserAvailability)> done)
{
    probe(u"/api/tags"_s, [this, done](int status, const QByteArray& body, bool) {
        m_api = Api::ollama;
        m_serverName = u"Ollama"_s;
        if (status != 200) {
            done(TextParserAvailability::unavailable(otherState(m_settings.serverUrl, status)));
            return;
        }
        QStringList models;
        for (const QJsonValue& model : QJsonDocument::fromJson(body).object().value(u"models"_s).toArray())
            models.append(model.toObject().value(u"name"_s).toString());
        const QString wanted = m_settings.model;
        if (!wanted.isEmpty()) {
            const bool present = models.contains(wanted) || models.contains(wanted + u":latest"_s);
            if (!present) {
                done(TextParserAvailability::unavailable(
                    ui(u"Ollama has no model “%1”. Download it with “ollama pull %1”, or "
                       u"choose another model in Preferences.")
                        .arg(wanted)));
                return;
            }
            m_model = wanted;
        } else if (models.isEmpty()) {
            done(TextParserAvailability::unavailable(
                ui(u"Ollama has no model yet. Download one, for example with “ollama pull llama3.2”, "
                   u"and try again.")));
            return;
        } else {
            m_model = models.first();
        }
        done(TextParserAvailability::makeAvailable());
    });
}

void TextParser::probeOpenAi(std::function<void(TextParserAvailability)> done)
{
    // llama-server reports on /health whether its model is loaded; LM Studio has no such path.
    probe(u"/health"_s, [this, done](int healthStatus, const QByteArray& healthBody, bool) {
        m_api = Api::openAi;
        const bool llamaServer =
            healthStatus == 200 && QJsonDocument::fromJson(healthBody).object().contains(u"status"_s);
        m_serverName = llamaServer ? u"llama-server"_s : ui(u"OpenAI-compatible server");
        if (isLoadingError(healthStatus, healthBody) && healthStatus != 404) {
            done(TextParserAvailability::unavailable(stillLoading()));
            return;
        }
        probe(u"/v1/models"_s, [this, done](int status, const QByteArray& body, bool) {
            if (isLoadingError(status, body)) {
                done(TextParserAvailability::unavailable(stillLoading()));
                return;
            }
            if (status != 200) {
                done(TextParserAvailability::unavailable(otherState(m_settings.serverUrl, status)));
                return;
            }
            QStringList models;
            for (const QJsonValue& model : QJsonDocument::fromJson(body).object().value(u"data"_s).toArray())
                models.append(model.toObject().value(u"id"_s).toString());
            if (models.isEmpty()) {
                done(TextParserAvailability::unavailable(
                    ui(u"The language model server at %1 has no model loaded. Load one and try again.")
                        .arg(origin(m_settings.serverUrl))));
                return;
            }
            // A server with one loaded model answers with it whatever name is asked for.
            m_model = m_settings.model.isEmpty() ? models.first() : m_settings.model;
            done(TextParserAvailability::makeAvailable());
        });
    });
}

QString TextParser::describe() const
{
    if (m_serverName.isEmpty())
        return origin(m_settings.serverUrl);
    return ui(u"%1 with the model “%2” at %3").arg(m_serverName, m_model, origin(m_settings.serverUrl));
}

void TextParser::extract(const QString& text)
{
    cancel();
    // A server just found ready is not asked again; should it have gone since, the chat
    // request itself fails with the same messages.
    if (m_ready) {
        startChat(text);
        return;
    }
    m_checking = true;
    const int run = m_run;
    checkAvailability([this, text, run](const TextParserAvailability& availability) {
        // Cancelled, or another text was given meanwhile.
        if (run != m_run)
            return;
        m_checking = false;
        if (!availability.available) {
            Q_EMIT failed(availability.message);
            return;
        }
        startChat(text);
    });
}

void TextParser::cancel()
{
    ++m_run;
    m_checking = false;
    if (m_reply) {
        QNetworkReply* reply = m_reply;
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    m_stallTimer->stop();
    m_deadlineTimer->stop();
}

void TextParser::startChat(const QString& text)
{
    const QJsonArray messages = {
        QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, instructions}},
        QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, text}},
    };
    const QJsonObject schema = ExtractionSchema::jsonSchema();
    QJsonObject body{{u"messages"_s, messages}, {u"stream"_s, true}};
    if (!m_model.isEmpty())
        body.insert(u"model"_s, m_model);
    QUrl url;
    if (m_api == Api::ollama) {
        url = endpoint(u"/api/chat"_s);
        body.insert(u"format"_s, schema);
        body.insert(u"options"_s, QJsonObject{{u"temperature"_s, 0}});
    } else {
        url = endpoint(u"/v1/chat/completions"_s);
        body.insert(u"temperature"_s, 0);
        body.insert(u"response_format"_s,
                    QJsonObject{{u"type"_s, u"json_schema"_s},
                                {u"json_schema"_s, QJsonObject{{u"name"_s, u"ExtractedInvoice"_s},
                                                               {u"strict"_s, true},
                                                               {u"schema"_s, schema}}}});
    }

    m_pending.clear();
    m_content.clear();
    m_wholeResponse.clear();
    m_serverError.clear();
    m_lastPartial.reset();
    m_stalled = false;
    m_tooLong = false;
    m_tooSlow = false;
    m_redirected = false;
    m_refusedRedirect.clear();
    m_scanned = 0;
    m_received = 0;
    m_publishedSize = 0;
    m_generationId = QUuid::createUuid().toString(QUuid::WithoutBraces);

    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    request.setRawHeader("Accept", "text/event-stream, application/x-ndjson, application/json");
    m_reply = m_network->post(request, QJsonDocument(body).toJson(QJsonDocument::Compact));
    connect(m_reply, &QNetworkReply::readyRead, this, &TextParser::receive);
    connect(m_reply, &QNetworkReply::finished, this, &TextParser::finish);
    guardRedirects(m_reply);
    m_stallTimer->start(m_settings.stallTimeoutMs);
    m_deadlineTimer->start(m_settings.maxDurationMs);
}

void TextParser::receive()
{
    if (!m_reply)
        return;
    m_stallTimer->start(m_settings.stallTimeoutMs);
    const QByteArray chunk = m_reply->readAll();
    m_received += chunk.size();
    if (m_received > Bounds::modelStreamBytes)
        return stop(&TextParser::m_tooLong);
    consume(m_reply, chunk);
    if (m_content.size() > Bounds::modelAnswerBytes)
        stop(&TextParser::m_tooLong);
}

void TextParser::consume(QNetworkReply* reply, const QByteArray& chunk)
{
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool eventStream =
        reply->header(QNetworkRequest::ContentTypeHeader).toString().contains(u"event-stream"_s);
    if (status >= 400 || (m_api == Api::openAi && !eventStream)) {
        m_wholeResponse += chunk;
        return;
    }
    m_pending += chunk;
    bool grew = false;
    // Lines are cut off by position and removed once at the end, and the search for the next
    // newline starts where the last one stopped: a chunk of many lines, or a line that arrives in
    // many chunks, is read once.
    qsizetype start = 0;
    qsizetype newline;
    while ((newline = m_pending.indexOf('\n', std::max(start, m_scanned))) >= 0) {
        QByteArray line = m_pending.sliced(start, newline - start).trimmed();
        start = newline + 1;
        if (m_api == Api::openAi) {
            // Server-sent events: "data: {…}" lines, "data: [DONE]" at the end.
            if (!line.startsWith("data:"))
                continue;
            line = line.mid(5).trimmed();
            if (line == "[DONE]")
                continue;
        }
        if (line.isEmpty())
            continue;
        const QJsonObject event = QJsonDocument::fromJson(line).object();
        if (event.contains(u"error"_s)) {
            m_serverError = errorMessageOf(line);
            continue;
        }
        const QString piece = m_api == Api::ollama
                                  ? event.value(u"message"_s).toObject().value(u"content"_s).toString()
                                  : event.value(u"choices"_s)
                                        .toArray()
                                        .at(0)
                                        .toObject()
                                        .value(u"delta"_s)
                                        .toObject()
                                        .value(u"content"_s)
                                        .toString();
        if (!piece.isEmpty()) {
            m_content += piece.toUtf8();
            grew = true;
        }
    }
    m_pending.remove(0, start);
    m_scanned = m_pending.size();
    if (grew)
        publishPartial();
}

void TextParser::publishPartial()
{
    // Showing the answer so far reads all of it. A real answer is a few kilobytes and is shown
    // at every step; beyond that only after it grew by an eighth, so that a long answer costs a
    // bounded multiple of its size, not its size times the number of pieces.
    constexpr qsizetype everyStep = 8 * 1024;
    if (m_content.size() > everyStep && m_content.size() - m_publishedSize < m_publishedSize / 8)
        return;
    m_publishedSize = m_content.size();
    const auto object = PartialJson::complete(m_content);
    if (!object)
        return;
    const PartiallyGeneratedExtractedInvoice partial =
        ExtractionSchema::decodePartial(*object, m_generationId);
    if (m_lastPartial && *m_lastPartial == partial)
        return;
    m_lastPartial = partial;
    Q_EMIT partiallyGenerated(partial);
}

void TextParser::finish()
{
    if (!m_reply)
        return;
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    reply->deleteLater();
    m_stallTimer->stop();
    m_deadlineTimer->stop();
    if (m_redirected) {
        fail(ui(u"The language model server sent the request on to %1. Invoice text only goes to the "
                u"server set in Preferences, so it was not sent there.")
                 .arg(origin(m_refusedRedirect)));
        return;
    }
    if (m_tooLong) {
        fail(ui(u"The language model server sent more than %1 MB, far more than any invoice needs. "
                u"The answer was stopped.")
                 .arg(Bounds::modelAnswerBytes / Bounds::megabyte));
        return;
    }
    if (m_tooSlow) {
        fail(ui(u"The language model server took longer than %1 minutes. The answer was stopped; try a "
                u"shorter text or a smaller model.")
                 .arg(std::max(1, m_settings.maxDurationMs / 60000)));
        return;
    }
    if (reply->isOpen()) {
        const QByteArray rest = reply->readAll();
        if (m_received + rest.size() > Bounds::modelStreamBytes) {
            fail(ui(u"The language model server sent more than %1 MB, far more than any invoice needs. "
                    u"The answer was stopped.")
                     .arg(Bounds::modelAnswerBytes / Bounds::megabyte));
            return;
        }
        consume(reply, rest);
    }
    // The last event may come without its newline.
    if (!m_pending.trimmed().isEmpty())
        consume(reply, "\n");
    if (m_stalled) {
        fail(ui(u"The language model server stopped answering. Try again, or use the offline extractor."));
        return;
    }
    const QVariant statusValue = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!statusValue.isValid()) {
        fail(notReachable(m_settings.serverUrl));
        return;
    }
    const int status = statusValue.toInt();
    if (status >= 400) {
        const QByteArray& body = m_wholeResponse;
        if (isLoadingError(status, body)) {
            fail(stillLoading());
            return;
        }
        const QString reason = errorMessageOf(body);
        fail(ui(u"The language model server refused the request: %1")
                 .arg(reason.isEmpty() ? reply->errorString() : reason));
        return;
    }
    if (!m_wholeResponse.isEmpty()) {
        // Answered in one piece: {"choices":[{"message":{"content":"…"}}]}.
        const QJsonObject object = QJsonDocument::fromJson(m_wholeResponse).object();
        if (object.contains(u"error"_s))
            m_serverError = errorMessageOf(m_wholeResponse);
        m_content = object.value(u"choices"_s)
                        .toArray()
                        .at(0)
                        .toObject()
                        .value(u"message"_s)
                        .toObject()
                        .value(u"content"_s)
                        .toString()
                        .toUtf8();
    }
    if (!m_serverError.isEmpty()) {
        fail(ui(u"The language model server reported an error: %1").arg(m_serverError));
        return;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(m_content, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject()) {
        fail(ui(u"The model’s answer is not the expected JSON."));
        return;
    }
    try {
        const ExtractedInvoice result = ExtractionSchema::decode(document.object());
        Q_EMIT finished(result);
    } catch (const ExtractionDecodingError& error) {
        fail(ui(u"The model’s answer does not fit the invoice fields: %1").arg(error.message()));
    }
}

void TextParser::fail(const QString& message)
{
    // The next extraction asks the server again first.
    m_ready = false;
    Q_EMIT failed(message);
}

void TextParser::fill(Invoice& invoice, const ExtractedInvoice& extracted, const Profile& profile)
{
    if (const auto& r = extracted.recipient) {
        take(invoice.name, r->name);
        take(invoice.businessName, r->businessName);
        take(invoice.email, r->email);
        take(invoice.addressLineOne, r->addressLineOne);
        take(invoice.addressLineTwo, r->addressLineTwo);
        take(invoice.addressPostcode, r->postcode);
        take(invoice.addressCity, r->city);
        take(invoice.addressState, r->state);
        static const QRegularExpression countryCode(u"^[A-Z]{2}$"_s);
        if (r->countryCode && countryCode.match(r->countryCode->toUpper()).hasMatch())
            invoice.addressCountry = Country{r->countryCode->toUpper()};
    }
    take(invoice.note, extracted.note);
    if (extracted.reference && !extracted.reference->trimmed().isEmpty())
        invoice.reference = extracted.reference->trimmed();
    static const QRegularExpression currencyCode(u"^[A-Z]{3}$"_s);
    if (extracted.currencyCode && currencyCode.match(extracted.currencyCode->toUpper()).hasMatch())
        invoice.currency = Currency{extracted.currencyCode->toUpper()};

    // A start alone is a single day; an end before the start is not taken.
    if (const auto start = isoDate(extracted.serviceDateStart)) {
        invoice.serviceDateStart = invoice.serviceDateStart.withLocalDate(*start);
        invoice.serviceDateEnd.reset();
        if (const auto end = isoDate(extracted.serviceDateEnd); end && *end > *start)
            invoice.serviceDateEnd = invoice.serviceDateStart.withLocalDate(*end);
    }

    if (extracted.items && !extracted.items->isEmpty()) {
        invoice.items.clear();
        for (const ExtractedItem& extractedItem : *extracted.items) {
            InvoiceItem item = InvoiceItem::makeNew();
            item.item = extractedItem.description.value_or(QString());
            item.quantity = extractedItem.quantity.value_or(1);
            item.unit = extractedItem.unit ? unitOf(*extractedItem.unit) : Unit::piece;
            item.unitPrice = extractedItem.unitPrice.value_or(0);
            item.vatPercentage = extractedItem.vatPercentage.value_or(profile.vatPercentage);
            invoice.items.append(item);
        }
        // The prices read from the text are net prices, whatever the profile's preset.
        invoice.grossPrices = false;
    }
}
