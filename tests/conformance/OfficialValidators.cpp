#include "OfficialValidators.h"

#include "util/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace OfficialValidators {

QString folder()
{
    const QString fromEnvironment = qEnvironmentVariable("LEDRA_VALIDATION_DIR");
    return fromEnvironment.isEmpty() ? QStringLiteral(LEDRA_VALIDATION_DIR) : fromEnvironment;
}

namespace {

const QString saxonJar = u"/usr/share/java/Saxon-HE.jar"_s;

std::unique_ptr<QProcess> start(const QString& program, const QStringList& arguments)
{
    auto process = std::make_unique<QProcess>();
    process->start(program, arguments);
    return process;
}

QByteArray finish(QProcess& process, QProcess::ProcessChannel channel = QProcess::StandardOutput)
{
    process.waitForFinished(-1);
    process.setReadChannel(channel);
    return process.readAll();
}

// The failed asserts of one SVRL report, as validate-xml's reader lists them: flag "warning" or
// "information" makes a warning, anything else (or none) an error; the text without its line
// breaks, cut at 160 characters. Successful reports are not listed, as there.
bool readReport(const QString& svrl, const QString& file, Verdict& verdict)
{
    const std::optional<QByteArray> bytes = Files::read(svrl);
    if (!bytes)
        return false;
    QXmlStreamReader xml(*bytes);
    static const QString svrlNamespace = u"http://purl.oclc.org/dsdl/svrl"_s;
    static const QRegularExpression whitespace(u"\\s+"_s);
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement() || xml.name() != u"failed-assert" || xml.namespaceUri() != svrlNamespace)
            continue;
        const QString flag = xml.attributes().value(u"flag"_s).toString().toLower();
        QString id = xml.attributes().value(u"id"_s).toString();
        if (id.isEmpty())
            id = u"?"_s;
        const QString text =
            xml.readElementText(QXmlStreamReader::IncludeChildElements).simplified().left(160);
        const bool warning = flag == u"warning" || flag == u"information";
        (warning ? verdict.warnings : verdict.errors)
            .append(u"%1 %2 %3 %4"_s.arg(file, warning ? u"WARNING"_s : u"ERROR"_s, id, text));
    }
    return !xml.hasError();
}

bool isUbl(const QString& file)
{
    QFile in(file);
    if (!in.open(QIODevice::ReadOnly))
        return false;
    const QByteArray head = in.read(4000);
    return head.contains("urn:oasis:names:specification:ubl:schema:xsd:Invoice-2") ||
           head.contains("urn:oasis:names:specification:ubl:schema:xsd:CreditNote-2");
}

} // namespace

Verdict validateXml(const QStringList& files)
{
    Verdict verdict;
    verdict.exitCode = 0;
    QTemporaryDir work;
    const QString base = work.path();
    for (const char* sub : {"cii", "ubl", "out/cii-cen", "out/cii-xr", "out/ubl-cen", "out/ubl-xr"})
        QDir().mkpath(base + u'/' + QLatin1StringView(sub));

    struct Entry
    {
        QString file;
        QString kind; // "cii" or "ubl"
        QString copy;
    };
    std::vector<Entry> entries;
    for (const QString& file : files) {
        if (!QFileInfo(file).isFile() || !QFileInfo(file).isReadable()) {
            verdict.results.append(u"RESULT %1 UNREADABLE errors=1 warnings=0"_s.arg(file));
            verdict.exitCode = 1;
            continue;
        }
        const QString kind = isUbl(file) ? u"ubl"_s : u"cii"_s;
        const QString copy = u"%1/%2/%3.xml"_s.arg(base, kind).arg(entries.size() + 1);
        QFile::copy(file, copy);
        entries.push_back({file, kind, copy});
    }
    if (entries.empty()) {
        verdict.exitCode = 1;
        return verdict;
    }

    // Every rule set over its whole folder at once, side by side.
    const QString rules = folder() + u"/rules/"_s;
    std::vector<std::unique_ptr<QProcess>> running;
    auto transform = [&](const QString& kind, const QString& set, const QString& stylesheet) {
        if (QDir(base + u'/' + kind).isEmpty())
            return;
        running.push_back(
            start(u"java"_s, {u"-cp"_s, saxonJar, u"net.sf.saxon.Transform"_s, u"-s:"_s + base + u'/' + kind,
                              u"-xsl:"_s + rules + stylesheet, u"-o:%1/out/%2-%3"_s.arg(base, kind, set)}));
    };
    transform(u"cii"_s, u"cen"_s, u"EN16931-CII-validation.xslt"_s);
    transform(u"cii"_s, u"xr"_s, u"XRechnung-CII.xsl"_s);
    transform(u"ubl"_s, u"cen"_s, u"EN16931-UBL-validation.xslt"_s);
    transform(u"ubl"_s, u"xr"_s, u"XRechnung-UBL.xsl"_s);

    // The schema, for CII only (the UBL schema is not checked), in one run over all files.
    QStringList ciiCopies;
    for (const Entry& entry : entries)
        if (entry.kind == u"cii")
            ciiCopies << entry.copy;
    QString schemaOutput;
    if (!ciiCopies.isEmpty()) {
        auto xmllint =
            start(u"xmllint"_s, QStringList{u"--noout"_s, u"--nonet"_s, u"--schema"_s,
                                            rules + u"cii-schema/CrossIndustryInvoice_100pD16B.xsd"_s} +
                                    ciiCopies);
        schemaOutput = QString::fromUtf8(finish(*xmllint, QProcess::StandardError));
    }
    QHash<QString, QString> transformErrors;
    for (const auto& process : running) {
        const QString output = process->arguments().constLast().mid(3);
        transformErrors.insert(output, QString::fromUtf8(finish(*process, QProcess::StandardError)));
    }
    const QStringList schemaLines = schemaOutput.split(u'\n', Qt::SkipEmptyParts);

    for (const Entry& entry : entries) {
        const int errorsBefore = int(verdict.errors.size());
        const int warningsBefore = int(verdict.warnings.size());
        if (entry.kind == u"cii") {
            int listed = 0;
            for (const QString& line : schemaLines) {
                if (listed == 5)
                    break;
                if ((line.startsWith(entry.copy + u':') || line.startsWith(entry.copy + u' ')) &&
                    !line.endsWith(u" validates"_s)) {
                    verdict.errors.append(u"%1 ERROR XSD %2"_s.arg(entry.file, line));
                    ++listed;
                }
            }
        }
        for (const QString& set : {u"cen"_s, u"xr"_s}) {
            const QString outputFolder = u"%1/out/%2-%3"_s.arg(base, entry.kind, set);
            const QString report = outputFolder + u'/' + QFileInfo(entry.copy).fileName();
            if (QFileInfo(report).size() > 0) {
                if (!readReport(report, entry.file, verdict))
                    ++verdict.unreadableReports;
            } else {
                verdict.errors.append(u"%1 ERROR %2-rules-not-run %3"_s.arg(
                    entry.file, set, transformErrors.value(outputFolder).left(200).replace(u'\n', u' ')));
            }
        }
        const int errors = int(verdict.errors.size()) - errorsBefore;
        const int warnings = int(verdict.warnings.size()) - warningsBefore;
        verdict.results.append(
            u"RESULT %1 %2 errors=%3 warnings=%4"_s.arg(entry.file, errors == 0 ? u"VALID"_s : u"INVALID"_s,
                                                        QString::number(errors), QString::number(warnings)));
        if (errors != 0)
            verdict.exitCode = 1;
    }
    return verdict;
}

Verdict validatePdf(const QStringList& files)
{
    Verdict verdict;
    verdict.exitCode = 0;
    const QString here = folder();

    // veraPDF over all files in one JVM, while the rest is checked.
    auto setup = start(here + u"/setup.sh"_s, {});
    const QString classes = QString::fromUtf8(finish(*setup)).trimmed();
    const QString classPath = QStringList{classes,
                                          here + u"/verapdf/lib/*"_s,
                                          u"/usr/share/java/jaxb-api.jar"_s,
                                          u"/usr/share/java/jaxb-runtime.jar"_s,
                                          u"/usr/share/java/jaxb-impl.jar"_s,
                                          u"/usr/share/java/js.jar"_s}
                                  .join(u':');
    auto vera = start(u"java"_s, QStringList{u"-cp"_s, classPath, u"VeraCheck"_s} + files);

    QTemporaryDir work;
    QHash<QString, QStringList> failures; // per PDF
    QStringList extracted;
    QHash<QString, QString> pdfOf; // extracted XML -> its PDF
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QString& file = files[i];
        auto check = start(u"qpdf"_s, {u"--check"_s, file});
        finish(*check);
        if (check->exitStatus() != QProcess::NormalExit || check->exitCode() != 0)
            failures[file] << u"FAIL qpdf-check %1"_s.arg(file);
        auto list = start(u"pdfdetach"_s, {u"-list"_s, file});
        static const QRegularExpression facturX(u"^\\s*(\\d+):\\s*factur-x\\.xml$"_s,
                                                QRegularExpression::CaseInsensitiveOption |
                                                    QRegularExpression::MultilineOption);
        const QRegularExpressionMatch match = facturX.match(QString::fromUtf8(finish(*list)));
        if (!match.hasMatch()) {
            failures[file] << u"FAIL attachment %1: no factur-x.xml"_s.arg(file);
            continue;
        }
        const QString xml = u"%1/%2-factur-x.xml"_s.arg(work.path()).arg(i);
        auto save = start(u"pdfdetach"_s, {u"-save"_s, match.captured(1), u"-o"_s, xml, file});
        finish(*save);
        extracted << xml;
        pdfOf.insert(xml, file);
    }
    if (!extracted.isEmpty()) {
        const Verdict xml = validateXml(extracted);
        for (const QString& line : xml.errors + xml.results) {
            const QString source =
                line.startsWith(u"RESULT "_s) ? line.section(u' ', 1, 1) : line.section(u' ', 0, 0);
            if (line.startsWith(u"RESULT "_s) && line.contains(u" VALID "_s))
                continue;
            if (pdfOf.contains(source))
                failures[pdfOf.value(source)] << u"FAIL xml "_s + line;
        }
    }

    // "FAIL veraPDF FILE" opens a file's failed rules ("FAIL rule CLAUSE-TEST message").
    QString current;
    for (const QString& line : QString::fromUtf8(finish(*vera)).split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u"PASS "_s)) {
            current.clear();
        } else if (line.startsWith(u"FAIL veraPDF "_s)) {
            // The line may go on with an exception's text after the name.
            const QString rest = line.mid(13);
            current.clear();
            for (const QString& file : files)
                if (rest.startsWith(file) && file.size() > current.size())
                    current = file;
            if (current.isEmpty())
                continue;
            failures[current] << u"FAIL pdfa %1"_s.arg(line);
        } else if (line.startsWith(u"FAIL rule "_s) && !current.isEmpty()) {
            failures[current] << u"FAIL pdfa %1"_s.arg(line);
        }
    }
    if (vera->exitStatus() != QProcess::NormalExit || (vera->exitCode() != 0 && failures.isEmpty())) {
        for (const QString& file : files)
            failures[file] << u"FAIL pdfa veraPDF did not run"_s;
    }

    for (const QString& file : files) {
        const QStringList& failed = failures.value(file);
        verdict.errors << failed;
        verdict.results << u"RESULT %1 %2"_s.arg(file, failed.isEmpty() ? u"PASS"_s : u"FAIL"_s);
        if (!failed.isEmpty())
            verdict.exitCode = 1;
    }
    return verdict;
}

Verdict runScript(const QString& script, const QStringList& files)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(folder() + u'/' + script, files);
    process.waitForFinished(-1);
    Verdict verdict;
    verdict.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    for (const QString& line : QString::fromUtf8(process.readAll()).split(u'\n', Qt::SkipEmptyParts)) {
        if (line.startsWith(u"RESULT "_s))
            verdict.results.append(line);
        else if (line.startsWith(u"Traceback"_s))
            ++verdict.unreadableReports;
        else if (line.contains(u" WARNING "_s))
            verdict.warnings.append(line);
        else if (line.contains(u" ERROR "_s) || line.startsWith(u"FAIL "_s))
            verdict.errors.append(line);
    }
    return verdict;
}

} // namespace OfficialValidators
