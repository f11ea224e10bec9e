#include "AppFixture.h"

#include "NumberFormatEdit.h"
#include "ProfileDialog.h"
#include "numbering/NumberFormat.h"
#include "storage/ProfileManager.h"
#include "tasks/SampleData.h"
#include "util/Clock.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

namespace {

int chipCount(const NumberFormatEdit& edit)
{
    return int(edit.toPlainText().count(QChar::ObjectReplacementCharacter));
}

QAction* tokenAction(QMenu* menu, const QString& token)
{
    for (QAction* action : menu->actions()) {
        if (action->menu())
            if (QAction* inner = tokenAction(action->menu(), token))
                return inner;
        if (action->data().toString() == token)
            return action;
    }
    return nullptr;
}

} // namespace

class NumberFormatEditTest : public AppFixture
{};

TEST_F(NumberFormatEditTest, TypedTokensBecomeChipsThatEditAsOneCharacter)
{
    NumberFormatEdit edit;
    edit.show();
    QTest::keyClicks(&edit, u"RE-{YY}-{NNNN}"_s);
    EXPECT_EQ(edit.format(), u"RE-{YY}-{NNNN}"_s);
    EXPECT_EQ(chipCount(edit), 2);

    // One backspace takes the whole chip; text typed after a chip stays text.
    QTest::keyClick(&edit, Qt::Key_Backspace);
    EXPECT_EQ(edit.format(), u"RE-{YY}-"_s);
    QTest::keyClicks(&edit, u"x"_s);
    EXPECT_EQ(edit.format(), u"RE-{YY}-x"_s);
    EXPECT_EQ(chipCount(edit), 1);

    // Not a token: the braces stay literal, and so does an unclosed one.
    edit.setFormat(QString());
    QTest::keyClicks(&edit, u"{abc}-{YYYY"_s);
    EXPECT_EQ(edit.format(), u"{abc}-{YYYY"_s);
    EXPECT_EQ(chipCount(edit), 0);

    // Enter is the dialog's, never a second line.
    QTest::keyClick(&edit, Qt::Key_Return);
    EXPECT_EQ(edit.document()->blockCount(), 1);
}

TEST_F(NumberFormatEditTest, MenusInsertAndReplaceChipsInMenuOrder)
{
    NumberFormatEdit edit;
    edit.setFormat(u"{YYYY}-"_s);
    EXPECT_EQ(chipCount(edit), 1);

    // The insert menu offers each kind's tokens in the fixed order, its default marked.
    QMenu* numbers = edit.insertMenu()->actions().value(0)->menu();
    ASSERT_TRUE(numbers);
    QStringList tokens;
    for (const QAction* action : numbers->actions())
        tokens << action->data().toString();
    EXPECT_EQ(tokens, (QStringList{u"N"_s, u"NN"_s, u"NNN"_s, u"NNNN"_s, u"NNNNN"_s}));
    EXPECT_EQ(numbers->defaultAction()->data().toString(), u"NNN"_s);

    tokenAction(edit.insertMenu(), u"NNN"_s)->trigger();
    EXPECT_EQ(edit.format(), u"{YYYY}-{NNN}"_s);

    // A chip's own menu offers its kind only and swaps the chip in place.
    QMenu* dateMenu = edit.chipMenu(0);
    EXPECT_FALSE(tokenAction(dateMenu, u"NNN"_s));
    EXPECT_TRUE(tokenAction(dateMenu, u"YYYY"_s)->isChecked());
    tokenAction(dateMenu, u"YYYYMM"_s)->trigger();
    EXPECT_EQ(edit.format(), u"{YYYYMM}-{NNN}"_s);
}

TEST_F(NumberFormatEditTest, CopyAndPasteCarryTheStoredSyntax)
{
    NumberFormatEdit edit;
    edit.setFormat(u"A-{X}-{NN}"_s);
    edit.selectAll();
    edit.copy();
    EXPECT_EQ(QApplication::clipboard()->text(), u"A-{X}-{NN}"_s);

    NumberFormatEdit other;
    QApplication::clipboard()->setText(u"INV {YYYY}\n{NNN}"_s);
    other.paste();
    EXPECT_EQ(other.format(), u"INV {YYYY} {NNN}"_s);
    EXPECT_EQ(chipCount(other), 2);
}

// Profile › Edit Profile…: every group of settings reaches profile.json, and the number
// previews are the numbers the store would give.
class ProfileEditorTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
    }

    QJsonObject profileFile()
    {
        const QString folder = workspace().profiles().profileFolder(workspace().activeProfile());
        QFile file(QDir(folder).filePath(u"profile.json"_s));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
        return QJsonDocument::fromJson(file.readAll()).object();
    }

    template <class T>
    static T* child(QWidget* dialog, const QString& name)
    {
        auto* widget = dialog->findChild<T*>(name);
        EXPECT_TRUE(widget) << name.toStdString();
        return widget;
    }
};

TEST_F(ProfileEditorTest, ChangedFieldsAreSavedToTheProfileFile)
{
    whenModal([&](QWidget* modal) {
        auto* dialog = qobject_cast<ProfileDialog*>(modal);
        ASSERT_TRUE(dialog);
        auto* business = child<QLineEdit>(dialog, u"businessName"_s);
        business->selectAll();
        QTest::keyClicks(business, u"Lindqvist Studio"_s);
        child<QDoubleSpinBox>(dialog, u"hourlyRate"_s)->setValue(92.5);
        child<QDoubleSpinBox>(dialog, u"latePaymentFee"_s)->setValue(5);
        child<QCheckBox>(dialog, u"friendlyReminderEnabled"_s)->setChecked(false);
        auto* frequency = child<QComboBox>(dialog, u"resetNumberFrequency"_s);
        frequency->setCurrentIndex(frequency->findData(int(NumberResetFrequency::never)));
        auto* eInvoices = child<QComboBox>(dialog, u"eInvoiceProfile"_s);
        EXPECT_EQ(eInvoices->currentData().toInt(), int(EInvoiceProfile::automatic));
        eInvoices->setCurrentIndex(eInvoices->findData(int(EInvoiceProfile::en16931)));
        auto* prefix = child<QLineEdit>(dialog, u"cancellationPrefix"_s);
        prefix->selectAll();
        QTest::keyClicks(prefix, u"STO-"_s);
        QTest::keyClicks(child<QPlainTextEdit>(dialog, u"reminderTemplate"_s), u"Bitte zahlen Sie "_s);
        child<QPushButton>(dialog, u"insertVariable"_s)->menu()->actions().value(0)->trigger();
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Save)->click();
    });
    trigger(u"editProfile"_s);

    const QJsonObject saved = profileFile();
    EXPECT_EQ(saved.value(u"businessName"_s).toString(), u"Lindqvist Studio"_s);
    EXPECT_DOUBLE_EQ(saved.value(u"hourlyRate"_s).toDouble(), 92.5);
    EXPECT_DOUBLE_EQ(saved.value(u"latePaymentFee"_s).toDouble(), 5);
    EXPECT_FALSE(saved.value(u"friendlyReminderEnabled"_s).toBool(true));
    EXPECT_EQ(saved.value(u"resetNumberFrequency"_s).toString(), u"never"_s);
    EXPECT_EQ(saved.value(u"cancellationPrefix"_s).toString(), u"STO-"_s);
    EXPECT_EQ(saved.value(u"eInvoiceProfile"_s).toString(), u"en16931"_s);
    EXPECT_TRUE(saved.value(u"reminderTemplate"_s).toString().startsWith(u"Bitte zahlen Sie"_s));
    EXPECT_EQ(workspace().activeProfile().businessName, u"Lindqvist Studio"_s);
}

TEST_F(ProfileEditorTest, PreviewsShowTheNumbersTheStoreGivesNext)
{
    InvoiceManager& store = workspace().invoices();
    const int nextInvoice = store.nextInvoiceNumber();
    const int nextCancellation = store.nextCancellationNumber();
    whenModal([&](QWidget* modal) {
        auto* dialog = qobject_cast<ProfileDialog*>(modal);
        ASSERT_TRUE(dialog);
        auto* format = child<NumberFormatEdit>(dialog, u"numberFormat"_s);
        format->selectAll();
        QTest::keyClicks(format, u"R{YY}/{NNNNN}"_s);
        const QString year = Clock::today().toString(u"yy"_s);
        EXPECT_EQ(child<QLabel>(dialog, u"numberPreview"_s)->text(),
                  u"R%1/%2"_s.arg(year).arg(QString::number(nextInvoice).rightJustified(5, u'0')));
        auto* prefix = child<QLineEdit>(dialog, u"cancellationPrefix"_s);
        prefix->selectAll();
        QTest::keyClicks(prefix, u"STO-"_s);
        EXPECT_EQ(child<QLabel>(dialog, u"cancellationPreview"_s)->text(),
                  u"STO-R%1/%2"_s.arg(year).arg(QString::number(nextCancellation).rightJustified(5, u'0')));

        // A start number above the existing invoices' does not jump the sequence.
        child<QSpinBox>(dialog, u"startNumber"_s)->setValue(nextInvoice + 500);
        EXPECT_EQ(child<QLabel>(dialog, u"numberPreview"_s)->text(),
                  u"R%1/%2"_s.arg(year).arg(QString::number(nextInvoice).rightJustified(5, u'0')));
        dialog->reject();
    });
    trigger(u"editProfile"_s);
}
