#include "l10n/Strings.h"

#include <QFile>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

namespace {

using Table = QHash<QString, QString>;

Table loadTable(const QString& resource)
{
    Table table;
    QFile file(resource);
    if (!file.open(QIODevice::ReadOnly)) {
        qWarning("Strings: missing string table %s", qPrintable(resource));
        return table;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isObject()) {
        qWarning("Strings: %s: %s", qPrintable(resource), qPrintable(error.errorString()));
        return table;
    }
    const QJsonObject object = document.object();
    for (auto it = object.begin(); it != object.end(); ++it)
        table.insert(it.key(), it.value().toString());
    return table;
}

const Table& tableFor(Language language)
{
    static const Table english = loadTable(QStringLiteral(":/l10n/en.json"));
    static const Table german = loadTable(QStringLiteral(":/l10n/de.json"));
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
