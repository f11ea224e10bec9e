// Files from strangers, read and written the way an attacker would arrange them: links where
// Ledra writes, FIFOs and devices where it reads, bombs and endless nesting inside.
#include "einvoice/PdfAttachments.h"
#include "exchange/VCard.h"
#include "extraction/PartialJson.h"
#include "support/HostileInputs.h"
#include "util/Files.h"
#include "util/JsonReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

const QByteArray invoiceXml = "<rsm:CrossIndustryInvoice xmlns:rsm=\"urn:un:unece:uncefact:data:standard:"
                              "CrossIndustryInvoice:100\"/>";

class HostileFilesTest : public ::testing::Test
{
protected:
    QString path(const QString& name) const { return m_dir.filePath(name); }

    void write(const QString& name, const QByteArray& content)
    {
        QDir().mkpath(QFileInfo(path(name)).path());
        QFile file(path(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QByteArray contents(const QString& name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(HostileFilesTest, AWriteReplacesAPlantedLinkAndNeverWritesThroughIt)
{
    write(u"home/.bashrc"_s, "export PATH=/usr/bin\n");
    QDir().mkpath(path(u"out"_s));
    ASSERT_TRUE(QFile::link(path(u"home/.bashrc"_s), path(u"out/Rechnung 2026-001.pdf"_s)));
    // A dangling link too: following it would create a file wherever it points.
    ASSERT_TRUE(QFile::link(path(u"home/.profile"_s), path(u"out/Rechnung 2026-002.pdf"_s)));

    EXPECT_FALSE(Files::writeAtomically(path(u"out/Rechnung 2026-001.pdf"_s), "%PDF-1.7 one"));
    EXPECT_FALSE(Files::writeAtomically(path(u"out/Rechnung 2026-002.pdf"_s), "%PDF-1.7 two"));

    EXPECT_EQ(contents(u"home/.bashrc"_s), "export PATH=/usr/bin\n");
    EXPECT_FALSE(QFileInfo::exists(path(u"home/.profile"_s)));
    EXPECT_FALSE(QFileInfo(path(u"out/Rechnung 2026-001.pdf"_s)).isSymLink());
    EXPECT_EQ(contents(u"out/Rechnung 2026-001.pdf"_s), "%PDF-1.7 one");
    EXPECT_EQ(contents(u"out/Rechnung 2026-002.pdf"_s), "%PDF-1.7 two");
    // No temporary file is left behind.
    EXPECT_EQ(QDir(path(u"out"_s)).entryList(QDir::Files | QDir::Hidden).size(), 2);
}

TEST_F(HostileFilesTest, AFolderThatIsAPlantedLinkIsRefusedWhereOthersWriteIntoIt)
{
    QDir().mkpath(path(u"home/.ssh"_s));
    QDir().mkpath(path(u"container"_s));
    ASSERT_TRUE(QFile::link(path(u"home/.ssh"_s), path(u"container/MailAttachments"_s)));

    const auto error = Files::writeAtomically(path(u"container/MailAttachments/authorized_keys"_s),
                                              "ssh-ed25519", Files::FolderLink::refused);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->contains(u"symbolic link"_s)) << qPrintable(*error);
    EXPECT_TRUE(QDir(path(u"home/.ssh"_s)).isEmpty());

    // An existing file keeps its permissions when replaced.
    write(u"private.txt"_s, "old");
    ASSERT_TRUE(QFile::setPermissions(path(u"private.txt"_s), QFile::ReadOwner | QFile::WriteOwner));
    EXPECT_FALSE(Files::writeAtomically(path(u"private.txt"_s), "new"));
    struct stat info
    {};
    ASSERT_EQ(::stat(QFile::encodeName(path(u"private.txt"_s)).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(contents(u"private.txt"_s), "new");
}

TEST_F(HostileFilesTest, ReadsTakeRegularFilesWithinTheirSizeOnly)
{
    // A FIFO would block the reader until someone writes; /dev/zero never ends.
    ASSERT_EQ(::mkfifo(QFile::encodeName(path(u"request.json"_s)).constData(), 0600), 0);
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, path(u"zero.json"_s)));
    QString error;
    EXPECT_FALSE(Files::read(path(u"request.json"_s), &error));
    EXPECT_EQ(error, u"it is not a regular file"_s);
    EXPECT_FALSE(Files::read(path(u"zero.json"_s), &error));
    EXPECT_EQ(error, u"it is not a regular file"_s);
    EXPECT_FALSE(Files::read(path(u"zero.json"_s), &error, {1024, false, true}));
    EXPECT_EQ(error, u"it is a symbolic link"_s);

    // A file one byte over the cap (sparse: it takes no room on the disk).
    write(u"huge.json"_s, {});
    ASSERT_EQ(::truncate(QFile::encodeName(path(u"huge.json"_s)).constData(), Bounds::fileBytes + 1), 0);
    EXPECT_FALSE(Files::read(path(u"huge.json"_s), &error));
    EXPECT_EQ(error, u"it is larger than 64 MB"_s);
    write(u"small.json"_s, "{}");
    EXPECT_EQ(Files::read(path(u"small.json"_s), &error, {2, false, true}), QByteArray("{}"));
    EXPECT_FALSE(Files::read(path(u"small.json"_s), &error, {1, false, true}));
}

TEST_F(HostileFilesTest, APdfBombIsRefusedAndOnlyTheInvoiceXmlIsEverDecoded)
{
    // 256 MB of zeros, twice deflated: a few kilobytes of PDF.
    const QByteArray bomb = HostileInputs::bombPdf(256 * Bounds::megabyte, u"factur-x.xml"_s);
    ASSERT_LT(bomb.size(), 1024 * 1024);
    const auto xml = PdfAttachments::invoiceXml(PdfAttachments::list(bomb));
    ASSERT_TRUE(xml);
    EXPECT_TRUE(xml->data.isEmpty());
    EXPECT_EQ(xml->problem, u"factur-x.xml is larger than 32 MB when decoded"_s);

    // The bomb beside a real invoice: the import reads the invoice and never the bomb.
    const QByteArray hybrid = HostileInputs::bombPdf(256 * Bounds::megabyte, u"notes.bin"_s, invoiceXml);
    const QList<PdfAttachments::Attachment> attachments = PdfAttachments::list(hybrid);
    ASSERT_EQ(attachments.size(), 2);
    const auto found = PdfAttachments::invoiceXml(attachments);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->data, invoiceXml);
    for (const auto& attachment : attachments) {
        if (attachment.name == u"notes.bin"_s) {
            EXPECT_FALSE(attachment.decoded);
        }
    }

    // Listing every file decodes each within the cap.
    for (const auto& attachment : PdfAttachments::list(hybrid, PdfAttachments::Contents::all)) {
        if (attachment.name == u"notes.bin"_s) {
            EXPECT_EQ(attachment.problem, u"notes.bin is larger than 32 MB when decoded"_s);
        } else {
            EXPECT_EQ(attachment.data, invoiceXml);
        }
    }
}

TEST_F(HostileFilesTest, VCardsAndRecordsAreLinearAndCapped)
{
    // Every line of a 600 KB note ends in a soft line break.
    const QByteArray card = HostileInputs::foldedVCard(600 * 1024);
    const QList<VCard> cards = VCard::parse(card);
    ASSERT_EQ(cards.size(), 1);
    const VCardProperty* note = cards.first().first(u"NOTE"_s);
    ASSERT_TRUE(note);
    EXPECT_GT(note->value.size(), 570 * 1024);
    EXPECT_TRUE(note->value.endsWith(u"aaaend"_s));
    try {
        VCard::parse(HostileInputs::foldedVCard(Bounds::vCardBytes + 1));
        ADD_FAILURE() << "an oversized card was read";
    } catch (const VCardError& error) {
        EXPECT_EQ(error.message(), u"The data is larger than 16 MB."_s);
    }

    QByteArray record = "{\"note\":\"" + QByteArray(Bounds::jsonRecordBytes, 'x') + "\"}";
    try {
        JsonDocument document(record);
        ADD_FAILURE() << "an oversized record was parsed";
    } catch (const JsonDecodeError& error) {
        EXPECT_EQ(error.message(), u"the record is larger than 16 MB"_s);
    }
    // Nesting deeper than any record: an error, not a crash.
    EXPECT_THROW(JsonDocument("{\"a\":" + QByteArray(100000, '[') + QByteArray(100000, ']') + "}"),
                 JsonDecodeError);
}

TEST_F(HostileFilesTest, AModelAnswerThatNestsWithoutEndShowsNothing)
{
    EXPECT_FALSE(PartialJson::complete(HostileInputs::nestedAnswer(60 * 1024)));
    EXPECT_FALSE(PartialJson::complete(HostileInputs::nestedAnswer(Bounds::modelJsonDepth + 1)));
    // Nesting an invoice needs, and a long answer still growing, are shown.
    const auto items = PartialJson::complete(R"({"items":[{"description":"Bera)");
    ASSERT_TRUE(items);
    EXPECT_EQ(items->value(u"items"_s).toArray().at(0).toObject().value(u"description"_s).toString(),
              u"Bera"_s);
    const auto note = PartialJson::complete("{\"note\":\"" + QByteArray(Bounds::modelAnswerBytes, 'n'));
    ASSERT_TRUE(note);
    EXPECT_EQ(note->value(u"note"_s).toString().size(), Bounds::modelAnswerBytes);
}
