#include "l10n/Strings.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

namespace {

using Table = QHash<QString, QString>;

// Each area of the program keeps its texts in its own file of the language's folder.
Table loadTables(const QString& folder)
{
    Table table;
    QDirIterator it(folder, {QStringLiteral("*.json")}, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
        if (!document.isObject()) {
            qWarning("Strings: %s: %s", qPrintable(path), qPrintable(error.errorString()));
            continue;
        }
        const QJsonObject object = document.object();
        for (auto entry = object.begin(); entry != object.end(); ++entry)
            table.insert(entry.key(), entry.value().toString());
    }
    return table;
}

const Table& tableFor(Language language)
{
    static const Table english = loadTables(QStringLiteral(":/l10n/en"));
    static const Table german = loadTables(QStringLiteral(":/l10n/de"));
    return language == Language::german ? german : english;
}

std::optional<Language> g_interfaceLanguage;

} // namespace

QString Strings::text(QStringView key, Language language)
{
    const Table& table = tableFor(language);
    const auto it = table.constFind(key.toString());
    return it == table.constEnd() ? key.toString() : *it;
}

bool Strings::hasEntry(QStringView key, Language language)
{
    return tableFor(language).contains(key.toString());
}

Language Strings::interfaceLanguage()
{
    if (g_interfaceLanguage)
        return *g_interfaceLanguage;
    return QLocale::system().language() == QLocale::German ? Language::german : Language::english;
}

void Strings::setInterfaceLanguage(std::optional<Language> language)
{
    g_interfaceLanguage = language;
}
