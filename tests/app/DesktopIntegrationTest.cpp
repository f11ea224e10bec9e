#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString desktopFolder = QStringLiteral(LEDRA_SOURCE_DIR "/app/desktop/");

QString read(const QString& name)
{
    QFile file(desktopFolder + name);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
    return QString::fromUtf8(file.readAll());
}

// Runs a validator of the freedesktop tools; nullopt when it is not installed here.
std::optional<std::pair<int, QString>> validate(const QString& program, const QStringList& arguments)
{
    if (QStandardPaths::findExecutable(program).isEmpty())
        return std::nullopt;
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    process.waitForFinished(60000);
    return std::pair{process.exitCode(), QString::fromUtf8(process.readAll())};
}

} // namespace

// What desktops read when Ledra is installed: the menu entry, the AppStream description and the
// file types. The entry must name the installed program and every type the shared MIME data
// defines, so that opening a .ledradata file from the file manager starts Ledra with it.
TEST(DesktopIntegration, EntryDescriptionAndFileTypesAgree)
{
    const QString entry = read(u"com.varnhelm.Ledra.desktop"_s);
    const QString mime = read(u"com.varnhelm.Ledra.mime.xml"_s);
    EXPECT_TRUE(entry.contains(u"\nExec=ledra-desktop %F\n"_s));
    // Received e-invoices open in the viewer from the file manager's "Open with" menu.
    EXPECT_TRUE(entry.contains(u"\nActions=view-einvoice;\n"_s));
    EXPECT_TRUE(entry.contains(u"\n[Desktop Action view-einvoice]\n"_s));
    EXPECT_TRUE(entry.contains(u"\nExec=ledra-desktop --viewer %F\n"_s));
    EXPECT_TRUE(entry.contains(u";application/xml;text/xml;"_s));
    EXPECT_TRUE(entry.contains(u"\nIcon=com.varnhelm.Ledra\n"_s));
    static const QRegularExpression type(uR"re(<mime-type type="([^"]+)")re"_s);
    int types = 0;
    for (auto match = type.globalMatch(mime); match.hasNext(); ++types)
        EXPECT_TRUE(entry.contains(match.next().captured(1) + u';')) << "the entry does not open the type";
    EXPECT_EQ(types, 2);
    for (const QString& glob : {u"*.ledradata"_s, u"*.ledraplugin"_s})
        EXPECT_TRUE(mime.contains(u"pattern=\""_s + glob + u'"'));

    if (const auto result =
            validate(u"desktop-file-validate"_s, {desktopFolder + u"com.varnhelm.Ledra.desktop"_s})) {
        EXPECT_EQ(result->first, 0) << result->second.toStdString();
    }
    if (const auto result =
            validate(u"appstreamcli"_s,
                     {u"validate"_s, u"--no-net"_s, desktopFolder + u"com.varnhelm.Ledra.metainfo.xml"_s})) {
        EXPECT_EQ(result->first, 0) << result->second.toStdString();
    }
}
