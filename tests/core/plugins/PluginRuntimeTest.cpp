#include "plugins/PluginRuntime.h"

#include "PluginFixture.h"
#include "model/InvoiceJson.h"

#include <QFile>

using namespace Qt::Literals::StringLiterals;

class PluginRuntimeTest : public PluginFixture
{
protected:
    QString folder() const { return m_home.filePath(u"Probe.ledraplugin"_s); }

    std::unique_ptr<PluginRuntime> plugin(const QByteArray& mainJs, const QByteArray& manifestFields = {},
                                          const QList<std::pair<QString, QByteArray>>& files = {},
                                          const RuntimeLimits& limits = {})
    {
        writePlugin(folder(), u"Probe"_s, mainJs, manifestFields, files);
        return runtimeFor(folder(), limits);
    }
};

TEST_F(PluginRuntimeTest, RequireResolvesInsidePluginCachesAndRefusesEscapes)
{
    auto runtime = plugin("module.exports = {};", {},
                          {{u"lib/util.js"_s, "globalThis.loads = (globalThis.loads || 0) + 1;\n"
                                              "exports.twice = function (x) { return 2 * x; };"},
                           {u"lib/data.json"_s, "module.exports = 'dotted';"}});
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->evaluate(u"require('./lib/util').twice(21)"_s), u"42");
    EXPECT_EQ(runtime->evaluate(u"require('lib/util.js') === require('./lib/util')"_s), u"true");
    EXPECT_EQ(runtime->evaluate(u"loads"_s), u"1");
    // A path with an extension is taken as it is.
    EXPECT_EQ(runtime->evaluate(u"require('./lib/data.json')"_s), u"dotted");

    // Errors reach the script as exceptions it can catch.
    auto caught = [&](const QString& path) {
        return runtime->evaluate(u"(function () { try { require('%1'); return 'no error'; } "
                                 u"catch (e) { return e.message; } })()"_s.arg(path));
    };
    EXPECT_EQ(caught(u"../x"_s), u"Module path escapes plugin directory: ../x");
    EXPECT_EQ(caught(u"lib/../../Other.ledraplugin/main"_s),
              u"Module path escapes plugin directory: lib/../../Other.ledraplugin/main");
    EXPECT_EQ(caught(u"./missing"_s), u"Cannot find module: ./missing");

    // A link that leads out of the folder is an escape too.
    writeFile(m_home.filePath(u"outside.js"_s), "module.exports = 'secret';");
    ASSERT_TRUE(QFile::link(m_home.filePath(u"outside.js"_s), folder() + u"/lib/link.js"_s));
    EXPECT_EQ(caught(u"./lib/link"_s), u"Module path escapes plugin directory: ./lib/link");

    // Uncaught, the error ends in lastError.
    EXPECT_FALSE(runtime->evaluate(u"require('../x')"_s));
    EXPECT_EQ(runtime->lastError(), u"Error: Module path escapes plugin directory: ../x");
}

TEST_F(PluginRuntimeTest, RequireCyclesAndThrowingModulesFailWithoutCaching)
{
    auto runtime =
        plugin("module.exports = {};", {},
               {{u"a.js"_s, "module.exports = require('./b');"},
                {u"b.js"_s, "module.exports = require('./a');"},
                {u"broken.js"_s, "globalThis.tries = (globalThis.tries || 0) + 1; throw new Error('bad');"}});
    ASSERT_TRUE(runtime);
    EXPECT_FALSE(runtime->evaluate(u"require('./a')"_s));
    EXPECT_TRUE(runtime->lastError()->contains(u"Circular require of module: ./a"));
    EXPECT_FALSE(runtime->evaluate(u"require('./broken')"_s));
    EXPECT_EQ(runtime->lastError(), u"Error: bad");
    EXPECT_FALSE(runtime->evaluate(u"require('./broken')"_s));
    EXPECT_EQ(runtime->evaluate(u"tries"_s), u"2");
}

TEST_F(PluginRuntimeTest, EntryPointFlagsFollowTheExports)
{
    auto runtime = plugin("module.exports = { exportInvoice: function () {}, exportInvoices: undefined,\n"
                          "  importInvoices: function () {}, updateInvoices: null };");
    ASSERT_TRUE(runtime);
    EXPECT_TRUE(runtime->hasExportInvoice());
    EXPECT_FALSE(runtime->hasExportInvoices());
    EXPECT_TRUE(runtime->hasImportInvoices());
    EXPECT_FALSE(runtime->hasUpdateInvoices());

    // exports.x = … and module.exports = … both work, as in CommonJS.
    runtime = plugin("exports.updateInvoices = function () { return {}; };");
    ASSERT_TRUE(runtime);
    EXPECT_TRUE(runtime->hasUpdateInvoices());
    EXPECT_FALSE(runtime->hasExportInvoice());
    EXPECT_FALSE(runtime->exportInvoice(Invoice::makeNew(), Profile::makeNew()));
}

TEST_F(PluginRuntimeTest, LoadFailuresEndInLastError)
{
    auto runtime = plugin("throw new TypeError('no good');");
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->lastError(), u"TypeError: no good");
    EXPECT_FALSE(runtime->hasExportInvoice());

    runtime = plugin("module.exports = undefined;");
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->lastError(), u"Plugin script failed to evaluate.");

    runtime = plugin("module.exports = {;");
    ASSERT_TRUE(runtime);
    EXPECT_TRUE(runtime->lastError()->startsWith(u"SyntaxError"));

    runtime = plugin(QByteArray("module.exports = '\xff\xfe';"));
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->lastError(), u"Could not read main.js");
}

TEST_F(PluginRuntimeTest, ExportsSeeInvoiceAndProfileAsPlainObjects)
{
    auto runtime = plugin(R"(
        exports.exportInvoice = function (invoice, profile) {
            return [invoice.recipient.name, invoice.items.length, invoice.items[0].unitPrice,
                    typeof invoice.date, profile.businessName].join('|');
        };
        exports.exportInvoices = function (invoices, profile) {
            return JSON.stringify(invoices.map(function (i) { return i.number; }));
        };)");
    ASSERT_TRUE(runtime);
    Invoice invoice = TestSupport::invoiceWith({{2, 49.5, 19}});
    invoice.name = u"Jürgen Weiß"_s;
    invoice.number = 7;
    Profile profile = Profile::makeNew();
    profile.businessName = u"Lindqvist Design"_s;
    EXPECT_EQ(runtime->exportInvoice(invoice, profile), u"Jürgen Weiß|1|49.5|number|Lindqvist Design");
    Invoice second = invoice;
    second.number = 8;
    EXPECT_EQ(runtime->exportInvoices({invoice, second}, profile), u"[7,8]");
}

TEST_F(PluginRuntimeTest, ResultsOfTheWrongShapeCountAsNone)
{
    auto runtime = plugin(R"(
        exports.exportInvoice = function () { return undefined; };
        exports.exportInvoices = function () { return { not: 'text' }; };
        exports.importInvoices = function (text) {
            if (text === 'object') return { recipient: {} };
            if (text === 'throw') throw new RangeError('bad input');
            return [ 42, { recipient: { name: 'Ok' } }, { items: [ { unit: 'Bucket' } ] },
                     { recipient: { name: 7 }, currency: 'CHF' } ];
        };
        exports.updateInvoices = function () { return [ 'not', 'an', 'object' ]; };)");
    ASSERT_TRUE(runtime);
    const Profile profile = Profile::makeNew();
    EXPECT_FALSE(runtime->exportInvoice(Invoice::makeNew(), profile));
    EXPECT_FALSE(runtime->exportInvoices({Invoice::makeNew()}, profile));
    EXPECT_FALSE(runtime->updateInvoices({}, profile));
    EXPECT_FALSE(runtime->importInvoices(u"object"_s, profile));
    EXPECT_FALSE(runtime->importInvoices(u"throw"_s, profile));
    EXPECT_EQ(runtime->lastError(), u"RangeError: bad input");

    // Element by element: the number and the item with an unknown unit are dropped; a field
    // of the wrong type is left out without losing the rest of its patch.
    const auto patches = runtime->importInvoices(u"list"_s, profile);
    ASSERT_TRUE(patches);
    ASSERT_EQ(patches->size(), 2);
    EXPECT_EQ(patches->at(0).recipient->name, u"Ok");
    EXPECT_FALSE(patches->at(1).recipient->name);
    EXPECT_EQ(patches->at(1).currency, u"CHF");
}

TEST_F(PluginRuntimeTest, UpdateResultsKeepOnlyValidIdsAndStatusNames)
{
    const QUuid paid = QUuid::createUuid();
    const QUuid sent = QUuid::createUuid();
    auto runtime = plugin(QStringLiteral(R"(
        exports.updateInvoices = function (invoices) {
            var result = {};
            result['%1'] = { status: 'Paid' };
            result['%2'] = { status: 'Sent', date: '2025-02-28' };
            result['%3'] = { status: 'paid' };
            result['not-a-uuid'] = { status: 'Paid' };
            result['%4'] = 'Paid';
            result.count = { status: 'Draft', seen: invoices.length };
            return result;
        };)")
                              .arg(paid.toString(QUuid::WithoutBraces), sent.toString(QUuid::WithoutBraces),
                                   QUuid::createUuid().toString(), QUuid::createUuid().toString())
                              .toUtf8());
    ASSERT_TRUE(runtime);
    const auto updates = runtime->updateInvoices({Invoice::makeNew()}, Profile::makeNew());
    ASSERT_TRUE(updates);
    ASSERT_EQ(updates->size(), 2);
    EXPECT_EQ(updates->at(0).invoiceId, paid);
    EXPECT_EQ(updates->at(0).status, Status::paid);
    EXPECT_FALSE(updates->at(0).date);
    EXPECT_EQ(updates->at(1).status, Status::sent);
    EXPECT_EQ(updates->at(1).date->localDate(), QDate(2025, 2, 28));
}

TEST_F(PluginRuntimeTest, SummariesCarryTheNineKeys)
{
    Invoice invoice = TestSupport::invoiceWith({{1, 100, 19}});
    invoice.number = 12;
    invoice.status = Status::sent;
    invoice.name = u"Acme"_s;
    invoice.date = TestSupport::berlinTimestamp(u"2025-03-01T00:30:00"_s);
    auto runtime = plugin(R"(
        exports.updateInvoices = function (invoices) {
            var s = invoices[0];
            console.log(Object.keys(s).join(','));
            console.log([s.number, s.status, s.total, s.currency, s.date, JSON.stringify(s.reference), s.name,
                         s.id === s.id.toUpperCase()].join('|'));
            return {};
        };)");
    ASSERT_TRUE(runtime);
    LogCapture log;
    ASSERT_TRUE(runtime->updateInvoices({invoice}, Profile::makeNew()));
    EXPECT_TRUE(log.contains(
        u"Plugin “Probe” log: id,number,formattedNumber,status,total,currency,date,reference,name"_s))
        << qPrintable(log.lines().join(u'\n'));
    EXPECT_TRUE(log.contains(u"Plugin “Probe” log: 12|Sent|119|EUR|2025-03-01|\"\"|Acme|true"_s))
        << qPrintable(log.lines().join(u'\n'));
}

TEST_F(PluginRuntimeTest, RunawayScriptsAreStoppedAndTheRuntimeStaysUsable)
{
    RuntimeLimits limits;
    limits.timeLimitSeconds = 0.3;
    limits.memoryLimitBytes = 64 * 1024 * 1024;
    auto runtime = plugin(R"(
        exports.exportInvoice = function () { while (true) {} };
        exports.exportInvoices = function () { var keep = []; while (true) keep.push(new Array(100000).fill(1)); };
        exports.importInvoices = function () { try { while (true) {} } catch (e) { return [{}]; } };
        exports.updateInvoices = function () { return {}; };)",
                          {}, {}, limits);
    ASSERT_TRUE(runtime);
    const Profile profile = Profile::makeNew();
    EXPECT_FALSE(runtime->exportInvoice(Invoice::makeNew(), profile));
    EXPECT_EQ(runtime->lastError(), u"Plugin script was stopped after running for 0.3 seconds.");
    // Termination cannot be caught by the script.
    EXPECT_FALSE(runtime->importInvoices(u""_s, profile));
    EXPECT_EQ(runtime->lastError(), u"Plugin script was stopped after running for 0.3 seconds.");
    EXPECT_FALSE(runtime->exportInvoices({Invoice::makeNew()}, profile));
    EXPECT_TRUE(runtime->lastError()->startsWith(u"Plugin script was stopped"));
    // The next call gets a fresh budget.
    EXPECT_TRUE(runtime->updateInvoices({}, profile));

    // A module that never finishes loading is stopped as well.
    runtime = plugin("for (;;) {}", {}, {}, limits);
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->lastError(), u"Plugin script was stopped after running for 0.3 seconds.");
}

TEST_F(PluginRuntimeTest, CommandBridgeRunsTheConnector)
{
    const QString scripts = m_home.filePath(u"Scripts"_s);
    RuntimeLimits limits;
    limits.connectorFolder = scripts;
    limits.connectorTimeoutMs = 500;
    const QByteArray main = R"(
        exports.exportInvoice = function () {
            try { return String(ledra.command.run('greet', 'Åsa')); } catch (e) { return 'error: ' + e.message; }
        };
        exports.exportInvoices = function () { return String(ledra.command.run(null, undefined)); };)";

    auto runtime = plugin(main, {}, {}, limits);
    ASSERT_TRUE(runtime);
    EXPECT_EQ(runtime->evaluate(u"typeof ledra"_s), u"undefined");

    runtime = plugin(main, R"("capabilities":["commands"])", {}, limits);
    ASSERT_TRUE(runtime);
    const Profile profile = Profile::makeNew();
    EXPECT_EQ(runtime->exportInvoice(Invoice::makeNew(), profile),
              u"error: The Ledra connector isn’t installed. Add LedraConnector to "_s + scripts);

    const QString connector = scripts + u"/LedraConnector"_s;
    auto install = [&](const QByteArray& script) {
        writeFile(connector, script);
        QFile::setPermissions(connector, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    };
    install("#!/bin/sh\nprintf '%s:%s:%s\\n' \"$#\" \"$1\" \"$2\"\n");
    EXPECT_EQ(runtime->exportInvoice(Invoice::makeNew(), profile), u"2:greet:Åsa");
    EXPECT_EQ(runtime->exportInvoices({}, profile), u"2::");

    install("#!/bin/sh\necho 'no such command' >&2\nexit 3\n");
    EXPECT_EQ(runtime->exportInvoice(Invoice::makeNew(), profile),
              u"error: The Ledra connector failed: no such command");

    install("#!/bin/sh\nexec sleep 5\n");
    EXPECT_EQ(runtime->exportInvoice(Invoice::makeNew(), profile),
              u"error: The Ledra connector did not answer within 0.5 seconds.");
}
