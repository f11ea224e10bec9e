#pragma once

#include "model/Enums.h"
#include "model/Invoice.h"
#include "model/Profile.h"
#include "plugins/PluginManifest.h"
#include "util/Timestamp.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QLoggingCategory>
#include <QSet>
#include <QString>
#include <QUuid>

#include <memory>
#include <optional>

Q_DECLARE_LOGGING_CATEGORY(lcPlugins)

// Bounds on what one script may take from the program.
struct RuntimeLimits
{
    // CPU time of one call into the script (loading "main.js" counts as one).
    double timeLimitSeconds = 5;
    // Growth of the process's resident memory during one call.
    qint64 memoryLimitBytes = qint64(1024) * 1024 * 1024;
    // How long the command bridge waits for the connector.
    int connectorTimeoutMs = 30000;
    // Where the connector lives; empty means the "Scripts" folder of the application data.
    QString connectorFolder;
};

// One element of what a plugin's importInvoices returns: the fields of a new invoice that
// differ from the defaults. Dates are "yyyy-MM-dd" (or full ISO 8601) texts.
struct ImportPatch
{
    struct Address
    {
        std::optional<QString> lineOne, lineTwo, postcode, city, state, country;
    };
    struct Recipient
    {
        std::optional<QString> name, email;
        std::optional<Address> address;
    };

    std::optional<Recipient> recipient;
    std::optional<QList<InvoiceItem>> items;
    std::optional<QString> currency;
    std::optional<QString> date;
    std::optional<QString> serviceDateStart;
    std::optional<QString> serviceDateEnd;
    std::optional<QString> marginalNote;
    std::optional<QString> status;
    std::optional<QString> statusDate;

    // Puts every field present in place of the invoice's value; dates and statuses that
    // don't parse are left alone.
    void applyTo(Invoice& invoice) const;
};

// One status change asked for by a plugin's updateInvoices.
struct StatusUpdate
{
    QUuid invoiceId;
    Status status = Status::draft;
    std::optional<Timestamp> date; // absent: now, when it is applied
};

// JavaScriptCore's handle types, declared as its header does so users need not include it.
struct OpaqueJSContextGroup;
struct OpaqueJSContext;
struct OpaqueJSValue;

// The JavaScript context of one plugin (JavaScriptCore): "main.js" runs in it as a
// CommonJS-style module, with `require`, `console.log` and, when the manifest asks for
// "commands", `ledra.command.run`. Nothing else of the host is reachable from the script.
// Used on the main thread only; uncaught script errors never escape, they end in lastError().
class PluginRuntime
{
public:
    static constexpr const char* connectorName = "LedraConnector";

    // Nullptr when the engine cannot make a context ("Plugin runtime could not be created.").
    static std::unique_ptr<PluginRuntime> create(const Plugin& plugin, const RuntimeLimits& limits = {});
    ~PluginRuntime();
    PluginRuntime(const PluginRuntime&) = delete;
    PluginRuntime& operator=(const PluginRuntime&) = delete;

    // Evaluates "main.js" and records which entry points it exports. False when it cannot be
    // read ("Could not read main.js"), throws, or yields no exports.
    bool load();

    const Plugin& plugin() const { return m_plugin; }
    const std::optional<QString>& lastError() const { return m_lastError; }
    bool hasExportInvoice() const { return m_hasExportInvoice; }
    bool hasExportInvoices() const { return m_hasExportInvoices; }
    bool hasImportInvoices() const { return m_hasImportInvoices; }
    bool hasUpdateInvoices() const { return m_hasUpdateInvoices; }

    // The entry points. nullopt when the script has no such entry point, throws, runs out of
    // time or returns something of another shape (a text for exports, an array for imports,
    // an object keyed by invoice id for updates). Elements of the wrong shape are skipped.
    std::optional<QString> exportInvoice(const Invoice& invoice, const Profile& profile);
    std::optional<QString> exportInvoices(const QList<Invoice>& invoices, const Profile& profile);
    std::optional<QList<ImportPatch>> importInvoices(const QString& text, const Profile& profile);
    // Hands the script one summary per invoice (summaryJson).
    std::optional<QList<StatusUpdate>> updateInvoices(const QList<Invoice>& invoices, const Profile& profile);

    // Evaluates a script text in the plugin's context; its value as text (JavaScript's
    // String()), or nullopt when it throws.
    std::optional<QString> evaluate(const QString& script);

    // The object that updateInvoices hands over for one invoice: id, number,
    // formattedNumber, status, total, currency, date ("yyyy-MM-dd"), reference and name.
    static QByteArray summaryJson(const Invoice& invoice, const Profile& profile);
    // The connector's folder: the "Scripts" folder of the application data.
    static QString defaultConnectorFolder();
    // What the plugin asks for that is not there, as the text to show the user (a plugin with
    // "commands" when the connector is not installed); nothing when it can run.
    std::optional<QString> missingRequirement() const;

private:
    PluginRuntime(const Plugin& plugin, const RuntimeLimits& limits);

    class Entry;
    friend class Entry;
    friend struct HostFunctions;

    bool setUp();
    const OpaqueJSValue* loadModule(const QString& path, const QString& text,
                                    const OpaqueJSValue** exception);
    const OpaqueJSValue* require(const QString& path, const OpaqueJSValue** exception);
    std::optional<QString> runCommand(const QString& name, const QString& input, QString* error);
    std::optional<QByteArray> callEntryPoint(const char* name, const QList<QByteArray>& jsonArguments,
                                             const QString& textArgument = {});
    void handleException(const OpaqueJSValue* exception);
    bool shouldTerminate();
    void armWatchdog();
    void protect(const OpaqueJSValue* value);

    Plugin m_plugin;
    RuntimeLimits m_limits;
    const OpaqueJSContextGroup* m_group = nullptr;
    OpaqueJSContext* m_context = nullptr;
    QHash<QString, const OpaqueJSValue*> m_moduleCache; // resolved path -> exports (kept from the GC)
    QSet<QString> m_loading;                            // modules being evaluated, to catch require cycles
    const OpaqueJSValue* m_mainExports = nullptr;
    QList<const OpaqueJSValue*> m_protected;
    std::optional<QString> m_lastError;
    bool m_hasExportInvoice = false;
    bool m_hasExportInvoices = false;
    bool m_hasImportInvoices = false;
    bool m_hasUpdateInvoices = false;

    // Watchdog state of the call in progress.
    int m_depth = 0;
    double m_callStartedCpu = 0; // CPU seconds of this thread when the call began
    qint64 m_callStartMemory = 0;
    std::optional<QString> m_terminationReason;
};
