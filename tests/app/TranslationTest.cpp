#include "l10n/Strings.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

// Every text the window shows through ui(u"…") has a German entry, so that a German user never
// meets an English word that was simply forgotten.
TEST(Translations, EveryInterfaceTextHasAGermanEntry)
{
    static const QRegularExpression call(uR"re(ui\(\s*((?:u"(?:[^"\\]|\\.)*"\s*)+)\))re"_s);
    static const QRegularExpression literal(uR"re(u"((?:[^"\\]|\\.)*)")re"_s);
    QStringList untranslated;
    int keys = 0;
    // The window's own texts, and the messages of the text reader and the tasks that it shows
    // as they stand.
    QStringList sources;
    for (const char* folder : {"/app", "/core/extraction", "/tasks"}) {
        QDirIterator files(QStringLiteral(LEDRA_SOURCE_DIR) + QLatin1StringView(folder), {u"*.cpp"_s},
                           QDir::Files);
        while (files.hasNext())
            sources.append(files.next());
    }
    for (const QString& path : sources) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly));
        const QString source = QString::fromUtf8(file.readAll());
        for (auto match = call.globalMatch(source); match.hasNext();) {
            QString key;
            for (auto part = literal.globalMatch(match.next().captured(1)); part.hasNext();)
                key += part.next().captured(1);
            key.replace(u"\\\""_s, u"\""_s).replace(u"\\n"_s, u"\n"_s);
            ++keys;
            if (!Strings::hasEntry(key, Language::german))
                untranslated.append(key);
        }
    }
    EXPECT_GT(keys, 150);
    EXPECT_TRUE(untranslated.isEmpty()) << untranslated.join(u'\n').toStdString();
}
