#pragma once

#include "validation/XPath.h"

#include <QString>

#include <memory>
#include <vector>

// One failed assertion (or fired report) of a rule set.
struct SchematronFailure
{
    QString id;       // "BR-CO-10"
    QString flag;     // "fatal", "error", "warning" or "information", as the rule states it
    QString text;     // the rule's message, <name/> and <value-of/> filled in
    QString location; // path of the node the rule looked at
    int line = 0;     // its line in the document, 0 when unknown
    bool isError() const { return flag != u"warning" && flag != u"information"; }
};

struct SchematronResult
{
    std::vector<SchematronFailure> failures;
    // Set when the rules could not be applied to the document (a value the rules cast that does
    // not fit its type); like the reference processors, nothing else is reported then.
    QString abortedBecause;
};

// A Schematron schema with XPath 2.0 rules (queryBinding xslt2), read from its .sch file as it
// stands: patterns, rules, assert and report with their flags, let variables on every level,
// <include> and the xsl:function definitions the rules call. Every expression is compiled once
// at load; a loaded rule set is immutable and may be applied from several threads at once.
class SchematronRuleSet
{
public:
    ~SchematronRuleSet();
    // Null with `error` set when the file or one it includes cannot be read or holds an
    // expression that does not compile. Paths may be resource paths (":/validation/…").
    static std::unique_ptr<SchematronRuleSet> load(const QString& path, QString* error = nullptr);

    SchematronResult apply(const xpath::Document& document) const;

    const QString& title() const { return m_title; }
    qsizetype assertionCount() const;

    struct Impl;

private:
    SchematronRuleSet();
    std::unique_ptr<Impl> m_impl;
    QString m_title;
};
