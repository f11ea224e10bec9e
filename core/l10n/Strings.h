#pragma once

#include "model/Enums.h"

#include <QString>
#include <QStringView>
#include <optional>

// The program's one localisation mechanism: English keys, looked up in the string table of
// a language. Documents, e-invoice texts and CSV titles use the document's language; the
// interface uses the user's. A key missing from a table stands for itself, so English needs
// entries only where the shown text differs from its key.
class Strings
{
public:
    static QString text(QStringView key, Language language);
    static QString ui(QStringView key) { return text(key, interfaceLanguage()); }
    // Whether the language's table has an entry for the key (which may read like the key).
    static bool hasEntry(QStringView key, Language language);

    // German when the system locale's language is German, else English.
    static Language interfaceLanguage();
    // Tests and the command line's --language pin the interface language; nullopt restores the system's.
    static void setInterfaceLanguage(std::optional<Language> language);
};
