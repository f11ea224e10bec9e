#include "plugins/PluginRuntime.h"

#include "util/Bounds.h"
#include "util/Files.h"

#include "calc/Totals.h"
#include "l10n/Strings.h"
#include "model/InvoiceJson.h"
#include "model/ProfileJson.h"
#include "numbering/NumberFormat.h"
#include "util/Clock.h"
#include "util/JsonReader.h"
#include "util/JsonWriter.h"

#include <JavaScriptCore/JavaScript.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QStringDecoder>
#include <QUrl>

#include <time.h>
#include <unistd.h>

// The execution time limit belongs to JavaScriptCore's SPI, whose header distributions leave
// out; the library exports the function all the same.
#if __has_include(<JavaScriptCore/JSContextRefPrivate.h>)
#include <JavaScriptCore/JSContextRefPrivate.h>
#else
extern "C" {
typedef bool (*JSShouldTerminateCallback)(JSContextRef ctx, void* context);
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void* context);
}
#endif

Q_LOGGING_CATEGORY(lcPlugins, "ledra.plugins")

using namespace Qt::Literals::StringLiterals;

namespace {

class JsString
{
public:
    explicit JsString(QStringView text)
        : m_ref(JSStringCreateWithCharacters(reinterpret_cast<const JSChar*>(text.utf16()),
                                             size_t(text.size())))
    {}
    explicit JsString(const char* text) : m_ref(JSStringCreateWithUTF8CString(text)) {}
    // Takes over a string the engine handed out.
    static JsString adopt(JSStringRef ref) { return JsString(ref); }
    ~JsString()
    {
        if (m_ref)
            JSStringRelease(m_ref);
    }
    JsString(const JsString&) = delete;
    JsString& operator=(const JsString&) = delete;
    JsString(JsString&& other) noexcept : m_ref(std::exchange(other.m_ref, nullptr)) {}

    JSStringRef get() const { return m_ref; }
    QString toQString() const
    {
        if (!m_ref)
            return {};
        return QString(reinterpret_cast<const QChar*>(JSStringGetCharactersPtr(m_ref)),
                       qsizetype(JSStringGetLength(m_ref)));
    }

private:
    explicit JsString(JSStringRef ref) : m_ref(ref) {}
    JSStringRef m_ref;
};

// String(value); nullopt when the conversion throws (the exception is left in `exception`).
std::optional<QString> toText(JSContextRef context, JSValueRef value, JSValueRef* exception)
{
    JSStringRef text = JSValueToStringCopy(context, value, exception);
    if (!text)
        return std::nullopt;
    return JsString::adopt(text).toQString();
}

JSValueRef makeString(JSContextRef context, QStringView text)
{
    return JSValueMakeString(context, JsString(text).get());
}

void setProperty(JSContextRef context, JSObjectRef object, const char* name, JSValueRef value)
{
    JSObjectSetProperty(context, object, JsString(name).get(), value, kJSPropertyAttributeNone, nullptr);
}

// Raises an Error with this message in the calling script.
JSValueRef throwError(JSContextRef context, const QString& message, JSValueRef* exception)
{
    const JSValueRef argument = makeString(context, message);
    *exception = JSObjectMakeError(context, 1, &argument, nullptr);
    return JSValueMakeUndefined(context);
}

double threadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// Resident memory of the process, or 0 where /proc is not available.
qint64 residentBytes()
{
    QFile statm(u"/proc/self/statm"_s);
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.size() > 1 ? fields[1].toLongLong() * sysconf(_SC_PAGESIZE) : 0;
}

std::optional<QString> readUtf8(const QString& path)
{
    const std::optional<QByteArray> bytes = Files::read(path);
    if (!bytes)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text = decoder(*bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

std::optional<Timestamp> parseDay(const QString& text)
{
    const QDate day = QDate::fromString(text, u"yyyy-MM-dd"_s);
    if (!day.isValid())
        return std::nullopt;
    return Timestamp::fromDateTime(QDateTime(day, QTime(0, 0), Clock::timeZone()));
}

// "yyyy-MM-dd", or a full ISO 8601 moment.
std::optional<Timestamp> parseDate(const QString& text)
{
    if (const auto day = parseDay(text))
        return day;
    const QDateTime moment = QDateTime::fromString(text, Qt::ISODateWithMs);
    if (moment.isValid())
        return Timestamp::fromDateTime(moment);
    return std::nullopt;
}

std::optional<QString> textField(const JsonFieldReader& reader, QLatin1StringView key)
{
    const auto value = reader.raw(key);
    std::string_view text;
    if (!value || value->get_string().get(text) != simdjson::SUCCESS)
        return std::nullopt;
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

ImportPatch readPatch(const JsonFieldReader& r)
{
    ImportPatch patch;
    if (const auto recipient = r.object("recipient"_L1)) {
        ImportPatch::Recipient value;
        value.name = textField(*recipient, "name"_L1);
        value.email = textField(*recipient, "email"_L1);
        if (const auto address = recipient->object("address"_L1)) {
            value.address =
                ImportPatch::Address{textField(*address, "lineOne"_L1),  textField(*address, "lineTwo"_L1),
                                     textField(*address, "postcode"_L1), textField(*address, "city"_L1),
                                     textField(*address, "state"_L1),    textField(*address, "country"_L1)};
        }
        patch.recipient = value;
    }
    if (r.has("items"_L1)) {
        QList<InvoiceItem> items;
        r.forEachObject("items"_L1,
                        [&](const JsonFieldReader& item) { items.append(InvoiceJson::readItem(item)); });
        patch.items = items;
    }
    patch.currency = textField(r, "currency"_L1);
    patch.date = textField(r, "date"_L1);
    patch.serviceDateStart = textField(r, "serviceDateStart"_L1);
    patch.serviceDateEnd = textField(r, "serviceDateEnd"_L1);
    patch.marginalNote = textField(r, "marginalNote"_L1);
    patch.status = textField(r, "status"_L1);
    patch.statusDate = textField(r, "statusDate"_L1);
    return patch;
}

void writeSummary(JsonWriter& w, const Invoice& invoice, const Profile& profile)
{
    w.beginObject();
    w.field("id"_L1, invoice.id);
    w.field("number"_L1, invoice.number);
    w.field("formattedNumber"_L1, NumberFormat::displayNumber(invoice, profile));
    w.field("status"_L1, rawValue(invoice.status));
    w.field("total"_L1, Totals::grossTotal(invoice));
    w.field("currency"_L1, invoice.currency.code);
    w.field("date"_L1, invoice.date.localDate().toString(u"yyyy-MM-dd"_s));
    w.field("reference"_L1, invoice.reference.value_or(QString()));
    w.field("name"_L1, invoice.name);
    w.endObject();
}

} // namespace

void ImportPatch::applyTo(Invoice& invoice) const
{
    auto put = [](const std::optional<QString>& value, QString& target) {
        if (value)
            target = *value;
    };
    auto putDate = [](const std::optional<QString>& value, auto& target) {
        if (value)
            if (const auto date = parseDate(*value))
                target = *date;
    };
    if (recipient) {
        put(recipient->name, invoice.name);
        put(recipient->email, invoice.email);
        if (const auto& address = recipient->address) {
            put(address->lineOne, invoice.addressLineOne);
            put(address->lineTwo, invoice.addressLineTwo);
            put(address->postcode, invoice.addressPostcode);
            put(address->city, invoice.addressCity);
            put(address->state, invoice.addressState);
            put(address->country, invoice.addressCountry.code);
        }
    }
    if (items)
        invoice.items = *items;
    put(currency, invoice.currency.code);
    putDate(date, invoice.date);
    putDate(serviceDateStart, invoice.serviceDateStart);
    putDate(serviceDateEnd, invoice.serviceDateEnd);
    put(marginalNote, invoice.marginalNote);
    if (status)
        if (const auto value = enumFromRaw<Status>(*status))
            invoice.status = *value;
    putDate(statusDate, invoice.statusUpdateDate);
}

// Marks the outermost call from the host into the script, where the watchdog's budget starts.
class PluginRuntime::Entry
{
public:
    explicit Entry(PluginRuntime& runtime) : m_runtime(runtime)
    {
        if (m_runtime.m_depth++ == 0) {
            m_runtime.m_callStartedCpu = threadCpuSeconds();
            m_runtime.m_callStartMemory = m_runtime.m_limits.memoryLimitBytes > 0 ? residentBytes() : 0;
            m_runtime.m_terminationReason.reset();
        }
    }
    ~Entry() { --m_runtime.m_depth; }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

private:
    PluginRuntime& m_runtime;
};

// The functions the script sees; each is an object of its own class whose private data is
// the runtime.
struct HostFunctions
{
    static PluginRuntime& runtime(JSObjectRef function)
    {
        return *static_cast<PluginRuntime*>(JSObjectGetPrivate(function));
    }

    static JSValueRef require(JSContextRef context, JSObjectRef function, JSObjectRef, size_t count,
                              const JSValueRef arguments[], JSValueRef* exception)
    {
        const auto path = count > 0 ? toText(context, arguments[0], exception) : u"undefined"_s;
        if (!path)
            return JSValueMakeUndefined(context);
        return runtime(function).require(*path, exception);
    }

    static JSValueRef log(JSContextRef context, JSObjectRef function, JSObjectRef, size_t count,
                          const JSValueRef arguments[], JSValueRef* exception)
    {
        const auto message = count > 0 ? toText(context, arguments[0], exception) : u"undefined"_s;
        if (message)
            qCInfo(lcPlugins).noquote()
                << u"Plugin “%1” log: %2"_s.arg(runtime(function).m_plugin.id(), *message);
        return JSValueMakeUndefined(context);
    }

    static JSValueRef run(JSContextRef context, JSObjectRef function, JSObjectRef, size_t count,
                          const JSValueRef arguments[], JSValueRef* exception)
    {
        QString texts[2];
        for (size_t i = 0; i < 2 && i < count; ++i) {
            if (JSValueIsUndefined(context, arguments[i]) || JSValueIsNull(context, arguments[i]))
                continue;
            const auto text = toText(context, arguments[i], exception);
            if (!text)
                return JSValueMakeUndefined(context);
            texts[i] = *text;
        }
        QString error;
        const auto reply = runtime(function).runCommand(texts[0], texts[1], &error);
        if (!error.isEmpty())
            return throwError(context, error, exception);
        return reply ? makeString(context, *reply) : JSValueMakeUndefined(context);
    }

    static JSClassRef makeClass(const char* name, JSObjectCallAsFunctionCallback callback)
    {
        JSClassDefinition definition = kJSClassDefinitionEmpty;
        definition.className = name;
        definition.callAsFunction = callback;
        return JSClassCreate(&definition);
    }

    static JSObjectRef make(JSContextRef context, PluginRuntime* owner,
                            JSObjectCallAsFunctionCallback callback)
    {
        // Classes are made once and live as long as the program.
        static const JSClassRef requireClass = makeClass("require", &HostFunctions::require);
        static const JSClassRef logClass = makeClass("log", &HostFunctions::log);
        static const JSClassRef runClass = makeClass("run", &HostFunctions::run);
        const JSClassRef cls = callback == &HostFunctions::require ? requireClass
                               : callback == &HostFunctions::log   ? logClass
                                                                   : runClass;
        return JSObjectMake(context, cls, owner);
    }

    static bool shouldTerminate(JSContextRef, void* data)
    {
        auto* runtime = static_cast<PluginRuntime*>(data);
        if (runtime->shouldTerminate())
            return true;
        // The watchdog fires once per limit; going on means setting the limit again.
        runtime->armWatchdog();
        return false;
    }
};

std::unique_ptr<PluginRuntime> PluginRuntime::create(const Plugin& plugin, const RuntimeLimits& limits)
{
    std::unique_ptr<PluginRuntime> runtime(new PluginRuntime(plugin, limits));
    if (!runtime->setUp()) {
        qCWarning(lcPlugins).noquote()
            << u"Plugin “%1”: %2"_s.arg(plugin.id(), Strings::ui(u"Plugin runtime could not be created."));
        return nullptr;
    }
    return runtime;
}

PluginRuntime::PluginRuntime(const Plugin& plugin, const RuntimeLimits& limits)
    : m_plugin(plugin), m_limits(limits)
{
    m_plugin.directory = QDir::cleanPath(QFileInfo(plugin.directory).absoluteFilePath());
}

PluginRuntime::~PluginRuntime()
{
    if (m_context) {
        for (JSValueRef value : std::as_const(m_protected))
            JSValueUnprotect(m_context, value);
        JSGlobalContextRelease(m_context);
    }
    if (m_group)
        JSContextGroupRelease(m_group);
}

bool PluginRuntime::setUp()
{
    // A group of its own gives each plugin its own virtual machine, so one plugin's watchdog
    // and heap never touch another's.
    m_group = JSContextGroupCreate();
    if (!m_group)
        return false;
    m_context = JSGlobalContextCreateInGroup(m_group, nullptr);
    if (!m_context)
        return false;
    armWatchdog();

    const JSObjectRef global = JSContextGetGlobalObject(m_context);
    setProperty(m_context, global, "require", HostFunctions::make(m_context, this, &HostFunctions::require));
    const JSObjectRef console = JSObjectMake(m_context, nullptr, nullptr);
    setProperty(m_context, console, "log", HostFunctions::make(m_context, this, &HostFunctions::log));
    setProperty(m_context, global, "console", console);

    if (m_plugin.manifest.hasCapability(QLatin1StringView(PluginManifest::commandsCapability))) {
        const JsString name("ledra");
        JSValueRef existing = JSObjectGetProperty(m_context, global, name.get(), nullptr);
        const JSObjectRef ledra = existing && JSValueIsObject(m_context, existing)
                                      ? JSValueToObject(m_context, existing, nullptr)
                                      : JSObjectMake(m_context, nullptr, nullptr);
        const JSObjectRef command = JSObjectMake(m_context, nullptr, nullptr);
        setProperty(m_context, command, "run", HostFunctions::make(m_context, this, &HostFunctions::run));
        setProperty(m_context, ledra, "command", command);
        setProperty(m_context, global, "ledra", ledra);
    }
    return true;
}

void PluginRuntime::armWatchdog()
{
    // The watchdog asks shouldTerminate() at this interval of CPU time; the budget of a call
    // is counted there, so that time spent waiting for the connector is not held against it.
    JSContextGroupSetExecutionTimeLimit(m_group, std::min(0.1, m_limits.timeLimitSeconds),
                                        &HostFunctions::shouldTerminate, this);
}

bool PluginRuntime::shouldTerminate()
{
    if (m_depth == 0)
        return false;
    if (threadCpuSeconds() - m_callStartedCpu >= m_limits.timeLimitSeconds) {
        m_terminationReason = Strings::ui(u"Plugin script was stopped after running for %1 seconds.")
                                  .arg(m_limits.timeLimitSeconds);
        return true;
    }
    if (m_limits.memoryLimitBytes > 0 && m_callStartMemory > 0 &&
        residentBytes() - m_callStartMemory > m_limits.memoryLimitBytes) {
        m_terminationReason = Strings::ui(u"Plugin script was stopped for using more than %1 MB of memory.")
                                  .arg(m_limits.memoryLimitBytes / (1024 * 1024));
        return true;
    }
    return false;
}

void PluginRuntime::protect(JSValueRef value)
{
    JSValueProtect(m_context, value);
    m_protected.append(value);
}

void PluginRuntime::handleException(JSValueRef exception)
{
    QString text;
    if (m_terminationReason) {
        // The engine's own termination value says nothing about why.
        text = *m_terminationReason;
    } else {
        JSValueRef nested = nullptr;
        text = toText(m_context, exception, &nested).value_or(QString());
        if (text.isEmpty())
            text = u"unknown"_s;
    }
    m_lastError = text;
    qCWarning(lcPlugins).noquote() << u"Plugin “%1” JS error: %2"_s.arg(m_plugin.id(), text);
}

JSValueRef PluginRuntime::loadModule(const QString& path, const QString& text, JSValueRef* exception)
{
    const QString wrapped = u"(function() {\n    var module = { exports: {} };\n"
                            u"    (function(exports, module, require) {\n"_s +
                            text +
                            u"\n    })(module.exports, module, require);\n"
                            u"    return module.exports;\n})()"_s;
    Entry entry(*this);
    return JSEvaluateScript(m_context, JsString(wrapped).get(), nullptr,
                            JsString(QUrl::fromLocalFile(path).toString()).get(), 1, exception);
}

JSValueRef PluginRuntime::require(const QString& path, JSValueRef* exception)
{
    const QString root = m_plugin.directory;
    QString resolved = QDir::cleanPath(root + u'/' + path);
    if (QFileInfo(resolved).suffix().isEmpty())
        resolved += u".js"_s;
    // Errors inside scripts stay English: plugin authors match on them.
    const QString escapes = u"Module path escapes plugin directory: "_s + path;
    if (!resolved.startsWith(root + u'/'))
        return throwError(m_context, escapes, exception);
    // A link inside the folder must not lead out of it either.
    const QFileInfo file(resolved);
    if (file.exists() && !file.canonicalFilePath().startsWith(QFileInfo(root).canonicalFilePath() + u'/'))
        return throwError(m_context, escapes, exception);

    if (const auto cached = m_moduleCache.constFind(resolved); cached != m_moduleCache.constEnd())
        return *cached;
    if (m_loading.contains(resolved))
        return throwError(m_context, u"Circular require of module: "_s + path, exception);
    const auto text = readUtf8(resolved);
    if (!text)
        return throwError(m_context, u"Cannot find module: "_s + path, exception);

    m_loading.insert(resolved);
    const JSValueRef exports = loadModule(resolved, *text, exception);
    m_loading.remove(resolved);
    if (*exception || !exports)
        return JSValueMakeUndefined(m_context);
    protect(exports);
    m_moduleCache.insert(resolved, exports);
    return exports;
}

bool PluginRuntime::load()
{
    const QString path = m_plugin.directory + u'/' + QLatin1StringView(Plugin::mainScript);
    const auto text = readUtf8(path);
    if (!text) {
        m_lastError = Strings::ui(u"Could not read main.js");
        qCWarning(lcPlugins).noquote() << u"Plugin “%1”: %2"_s.arg(m_plugin.id(), *m_lastError);
        return false;
    }
    JSValueRef exception = nullptr;
    m_loading.insert(path);
    const JSValueRef exports = loadModule(path, *text, &exception);
    m_loading.remove(path);
    if (exception) {
        handleException(exception);
        return false;
    }
    if (!exports || !JSValueIsObject(m_context, exports)) {
        m_lastError = Strings::ui(u"Plugin script failed to evaluate.");
        qCWarning(lcPlugins).noquote() << u"Plugin “%1”: %2"_s.arg(m_plugin.id(), *m_lastError);
        return false;
    }
    protect(exports);
    m_mainExports = exports;
    m_moduleCache.insert(path, exports);

    const JSObjectRef object = JSValueToObject(m_context, exports, nullptr);
    auto present = [&](const char* name) {
        Entry entry(*this); // a getter is script code too
        JSValueRef error = nullptr;
        const JSValueRef value = JSObjectGetProperty(m_context, object, JsString(name).get(), &error);
        if (error) {
            handleException(error);
            return false;
        }
        return !JSValueIsUndefined(m_context, value) && !JSValueIsNull(m_context, value);
    };
    m_hasExportInvoice = present("exportInvoice");
    m_hasExportInvoices = present("exportInvoices");
    m_hasImportInvoices = present("importInvoices");
    m_hasUpdateInvoices = present("updateInvoices");
    return true;
}

std::optional<QString> PluginRuntime::evaluate(const QString& script)
{
    Entry entry(*this);
    JSValueRef exception = nullptr;
    const JSValueRef value =
        JSEvaluateScript(m_context, JsString(script).get(), nullptr, nullptr, 1, &exception);
    if (!exception) {
        if (auto text = toText(m_context, value, &exception))
            return text;
    }
    handleException(exception);
    return std::nullopt;
}

// Calls an entry point with JSON arguments parsed by the context (and an optional leading
// text argument); the result as the context's JSON text, or nullopt.
std::optional<QByteArray> PluginRuntime::callEntryPoint(const char* name,
                                                        const QList<QByteArray>& jsonArguments,
                                                        const QString& textArgument)
{
    if (!m_mainExports)
        return std::nullopt;
    Entry entry(*this);
    JSValueRef exception = nullptr;
    const JSObjectRef exports = JSValueToObject(m_context, m_mainExports, nullptr);
    const JSValueRef function = JSObjectGetProperty(m_context, exports, JsString(name).get(), &exception);
    if (exception) {
        handleException(exception);
        return std::nullopt;
    }
    if (!JSValueIsObject(m_context, function) ||
        !JSObjectIsFunction(m_context, JSValueToObject(m_context, function, nullptr))) {
        if (!JSValueIsUndefined(m_context, function) && !JSValueIsNull(m_context, function)) {
            m_lastError = QString::fromLatin1(name) + u" is not a function"_s;
            qCWarning(lcPlugins).noquote() << u"Plugin “%1”: %2"_s.arg(m_plugin.id(), *m_lastError);
        }
        return std::nullopt;
    }

    // On the stack, where the collector looks for live values.
    JSValueRef arguments[3] = {};
    size_t count = 0;
    if (!textArgument.isNull())
        arguments[count++] = makeString(m_context, textArgument);
    for (const QByteArray& json : jsonArguments) {
        Q_ASSERT(count < std::size(arguments));
        arguments[count] = JSValueMakeFromJSONString(m_context, JsString(QString::fromUtf8(json)).get());
        if (!arguments[count])
            return std::nullopt;
        ++count;
    }
    const JSValueRef result = JSObjectCallAsFunction(m_context, JSValueToObject(m_context, function, nullptr),
                                                     exports, count, arguments, &exception);
    if (exception) {
        handleException(exception);
        return std::nullopt;
    }
    if (JSValueIsUndefined(m_context, result) || JSValueIsNull(m_context, result))
        return std::nullopt;
    JSStringRef json = JSValueCreateJSONString(m_context, result, 0, &exception);
    if (exception) {
        handleException(exception);
        return std::nullopt;
    }
    if (!json)
        return std::nullopt; // a function or a symbol has no JSON form
    return JsString::adopt(json).toQString().toUtf8();
}

namespace {

QByteArray invoicesJson(const QList<Invoice>& invoices)
{
    JsonWriter writer;
    writer.beginArray();
    for (const Invoice& invoice : invoices)
        InvoiceJson::write(writer, invoice);
    writer.endArray();
    return writer.take();
}

// The result parsed by the host's reader; nullopt when it does not parse.
struct ParsedResult
{
    simdjson::dom::parser parser;
    simdjson::dom::element root;
};

std::unique_ptr<ParsedResult> parseResult(const QByteArray& json)
{
    // An answer is bounded like any record before it is parsed.
    if (json.size() > Bounds::pluginAnswerBytes)
        return nullptr;
    auto result = std::make_unique<ParsedResult>();
    if (result->parser.parse(json.constData(), size_t(json.size())).get(result->root) != simdjson::SUCCESS)
        return nullptr;
    return result;
}

std::optional<QString> textResult(const std::optional<QByteArray>& json)
{
    if (!json)
        return std::nullopt;
    const auto parsed = parseResult(*json);
    std::string_view text;
    if (!parsed || parsed->root.get_string().get(text) != simdjson::SUCCESS)
        return std::nullopt;
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

} // namespace

std::optional<QString> PluginRuntime::exportInvoice(const Invoice& invoice, const Profile& profile)
{
    return textResult(
        callEntryPoint("exportInvoice", {InvoiceJson::encode(invoice), ProfileJson::encode(profile)}));
}

std::optional<QString> PluginRuntime::exportInvoices(const QList<Invoice>& invoices, const Profile& profile)
{
    return textResult(
        callEntryPoint("exportInvoices", {invoicesJson(invoices), ProfileJson::encode(profile)}));
}

std::optional<QList<ImportPatch>> PluginRuntime::importInvoices(const QString& text, const Profile& profile)
{
    const auto json =
        callEntryPoint("importInvoices", {ProfileJson::encode(profile)}, text.isNull() ? u""_s : text);
    if (!json)
        return std::nullopt;
    const auto parsed = parseResult(*json);
    simdjson::dom::array array;
    if (!parsed || parsed->root.get_array().get(array) != simdjson::SUCCESS)
        return std::nullopt;
    QList<ImportPatch> patches;
    qsizetype index = 0;
    for (simdjson::dom::element element : array) {
        const QString path = u"[%1]"_s.arg(index++);
        simdjson::dom::object object;
        if (element.get_object().get(object) != simdjson::SUCCESS)
            continue;
        try {
            patches.append(readPatch(JsonFieldReader(object, path, DateEncoding::referenceSeconds)));
        } catch (const JsonDecodeError& error) {
            qCWarning(lcPlugins).noquote()
                << u"Plugin “%1”: skipped an imported invoice: %2"_s.arg(m_plugin.id(), error.message());
        }
    }
    return patches;
}

std::optional<QList<StatusUpdate>> PluginRuntime::updateInvoices(const QList<Invoice>& invoices,
                                                                 const Profile& profile)
{
    JsonWriter writer;
    writer.beginArray();
    for (const Invoice& invoice : invoices)
        writeSummary(writer, invoice, profile);
    writer.endArray();
    const auto json = callEntryPoint("updateInvoices", {writer.take(), ProfileJson::encode(profile)});
    if (!json)
        return std::nullopt;
    const auto parsed = parseResult(*json);
    simdjson::dom::object object;
    if (!parsed || parsed->root.get_object().get(object) != simdjson::SUCCESS)
        return std::nullopt;
    QList<StatusUpdate> updates;
    for (const auto field : object) {
        simdjson::dom::object change;
        if (field.value.get_object().get(change) != simdjson::SUCCESS)
            continue;
        const QUuid id = QUuid::fromString(QString::fromUtf8(field.key.data(), qsizetype(field.key.size())));
        std::string_view statusText;
        if (id.isNull() || change["status"].get_string().get(statusText) != simdjson::SUCCESS)
            continue;
        const auto status =
            enumFromRaw<Status>(QString::fromUtf8(statusText.data(), qsizetype(statusText.size())));
        if (!status)
            continue;
        StatusUpdate update{id, *status, std::nullopt};
        std::string_view dateText;
        if (change["date"].get_string().get(dateText) == simdjson::SUCCESS)
            update.date = parseDay(QString::fromUtf8(dateText.data(), qsizetype(dateText.size())));
        updates.append(update);
    }
    return updates;
}

QByteArray PluginRuntime::summaryJson(const Invoice& invoice, const Profile& profile)
{
    JsonWriter writer;
    writeSummary(writer, invoice, profile);
    return writer.take();
}

QString PluginRuntime::defaultConnectorFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + u"/Scripts"_s;
}

std::optional<QString> PluginRuntime::runCommand(const QString& name, const QString& input, QString* error)
{
    const QString folder =
        m_limits.connectorFolder.isEmpty() ? defaultConnectorFolder() : m_limits.connectorFolder;
    const QString path = QDir(folder).filePath(QLatin1StringView(connectorName));
    if (!QFileInfo(path).isFile()) {
        *error = Strings::ui(u"The Ledra connector isn’t installed. Add %1 to %2")
                     .arg(QLatin1StringView(connectorName), QDir::toNativeSeparators(folder));
        return std::nullopt;
    }
    QProcess process;
    process.start(path, {name, input}, QIODevice::ReadOnly);
    if (!process.waitForStarted()) {
        *error = Strings::ui(u"The Ledra connector could not be started: ") + process.errorString();
        return std::nullopt;
    }
    if (!process.waitForFinished(m_limits.connectorTimeoutMs)) {
        process.kill();
        process.waitForFinished(1000);
        *error = Strings::ui(u"The Ledra connector did not answer within %1 seconds.")
                     .arg(m_limits.connectorTimeoutMs / 1000.0);
        return std::nullopt;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        const QString details = QString::fromUtf8(process.readAllStandardError()).trimmed();
        *error = Strings::ui(u"The Ledra connector failed: ") +
                 (details.isEmpty() ? u"exit code %1"_s.arg(process.exitCode()) : details);
        return std::nullopt;
    }
    const QByteArray reply = process.readAllStandardOutput();
    if (reply.isEmpty())
        return std::nullopt;
    QString text = QString::fromUtf8(reply);
    // Like a shell's command substitution, so `echo` replies need no trimming in the script.
    while (text.endsWith(u'\n') || text.endsWith(u'\r'))
        text.chop(1);
    return text;
}
