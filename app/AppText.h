#pragma once

#include "l10n/Strings.h"

#include <QString>
#include <QStringView>

// Interface texts: English keys looked up in the interface language's string table, the same
// tables the documents use. A key without an entry shows as written.
inline QString ui(QStringView key)
{
    return Strings::ui(key);
}
