#pragma once

#include <QString>
#include <QStringList>

// The official e-invoice validators beside the repository (../shared/validation), run the way
// their validate-xml and validate-pdf scripts run them, but batched: every rule set compiles
// once and judges all files in one JVM, and veraPDF checks all PDFs in one JVM. The scripts
// start several processes per file, which made a few hundred files take most of the suite's time.
// The lines have the scripts' form, so a verdict reads the same either way.
namespace OfficialValidators {

QString folder();

struct Verdict
{
    int exitCode = -1;    // 0 when every file is valid
    QStringList errors;   // "FILE ERROR RULE text", "FAIL check FILE ...": one failed rule or check each
    QStringList warnings; // "FILE WARNING RULE text": listed, never fatal
    QStringList results;  // one "RESULT FILE VALID|INVALID|PASS|FAIL ..." line per file
    // Rule-set reports that could not be read back (the rule set stopped part-way through).
    int unreadableReports = 0;
};

// CII or UBL XML (told apart by the root's namespace): the CII D16B schema, the EN 16931 rules
// and the XRechnung rules with Peppol's, as validate-xml applies them.
Verdict validateXml(const QStringList& files);

// Hybrid PDFs, as validate-pdf checks them: qpdf --check, an embedded factur-x.xml that passes
// validateXml, and veraPDF's PDF/A-3B rules.
Verdict validatePdf(const QStringList& files);

// Runs one of the scripts themselves (slow: a JVM or two per file); to confirm the batched
// runs above say the same.
Verdict runScript(const QString& script, const QStringList& files);

} // namespace OfficialValidators
