#include "AppFixture.h"

#include "AppSettings.h"
#include "EInvoiceViewer.h"
#include "InvoiceListView.h"
#include "PluginsDialog.h"
#include "PreferencesDialog.h"
#include "ProfileDialog.h"
#include "RemindersDialog.h"
#include "StylingDialog.h"
#include "TextExtractionDialog.h"
#include "tasks/SampleData.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QComboBox>
#include <QDirIterator>
#include <QFile>
#include <QGroupBox>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QTabWidget>
#include <QTextDocumentFragment>
#include <QTextEdit>

using namespace Qt::Literals::StringLiterals;

namespace {

// The English interface texts whose German differs: any of them on screen in a German session
// was left untranslated. Texts with placeholders match with anything in their place.
class EnglishTexts
{
public:
    EnglishTexts()
    {
        QStringList files{QStringLiteral(LEDRA_SOURCE_DIR "/app/resources/l10n/de/app.json")};
        QDirIterator core(QStringLiteral(LEDRA_SOURCE_DIR "/core/resources/l10n/de"), {u"*.json"_s},
                          QDir::Files);
        while (core.hasNext())
            files.append(core.next());
        for (const QString& path : files) {
            QFile file(path);
            if (!file.open(QIODevice::ReadOnly))
                continue;
            const QJsonObject table = QJsonDocument::fromJson(file.readAll()).object();
            for (auto it = table.begin(); it != table.end(); ++it) {
                const QString english = it.key();
                if (it.value().toString() == english)
                    continue;
                if (!english.contains(u'%')) {
                    m_plain.insert(english);
                } else if (QString(english).remove(QRegularExpression(u"%\\d"_s)).size() >= 12) {
                    QString pattern = QRegularExpression::escape(english);
                    pattern.replace(QRegularExpression(u"%\\d"_s), u".*"_s);
                    m_patterns.append(QRegularExpression(u"^"_s + pattern + u"$"_s,
                                                         QRegularExpression::DotMatchesEverythingOption));
                }
            }
        }
    }

    bool isEnglish(QString text) const
    {
        text = text.trimmed();
        if (text.isEmpty())
            return false;
        if (m_plain.contains(text))
            return true;
        return std::any_of(m_patterns.begin(), m_patterns.end(),
                           [&](const QRegularExpression& pattern) { return pattern.match(text).hasMatch(); });
    }

private:
    QSet<QString> m_plain;
    QList<QRegularExpression> m_patterns;
};

QString plain(QString text)
{
    if (Qt::mightBeRichText(text))
        text = QTextDocumentFragment::fromHtml(text).toPlainText();
    text.remove(u'&');
    const qsizetype tab = text.indexOf(u'\t'); // a menu entry's shortcut column
    return tab < 0 ? text : text.left(tab);
}

// Every text a widget shows or says: labels, buttons, titles, tabs, items, placeholders,
// tool tips, menus.
QStringList textsOf(QWidget* root)
{
    QStringList texts;
    QList<QWidget*> widgets = root->findChildren<QWidget*>();
    widgets.prepend(root);
    for (QWidget* widget : std::as_const(widgets)) {
        texts << widget->toolTip() << widget->windowTitle() << widget->accessibleName();
        if (auto* label = qobject_cast<QLabel*>(widget))
            texts << label->text();
        if (auto* button = qobject_cast<QAbstractButton*>(widget))
            texts << button->text();
        if (auto* box = qobject_cast<QGroupBox*>(widget))
            texts << box->title();
        if (auto* line = qobject_cast<QLineEdit*>(widget))
            texts << line->placeholderText();
        if (auto* edit = qobject_cast<QPlainTextEdit*>(widget))
            texts << edit->placeholderText();
        if (auto* tabs = qobject_cast<QTabWidget*>(widget))
            for (int i = 0; i < tabs->count(); ++i)
                texts << tabs->tabText(i) << tabs->tabToolTip(i);
        if (auto* combo = qobject_cast<QComboBox*>(widget); combo && !combo->property("endonyms").toBool())
            for (int i = 0; i < combo->count(); ++i)
                texts << combo->itemText(i);
        if (auto* spin = qobject_cast<QAbstractSpinBox*>(widget))
            texts << spin->specialValueText();
        for (QAction* action : widget->actions()) {
            texts << action->text() << action->toolTip();
            if (QMenu* menu = action->menu())
                texts << textsOf(menu);
        }
        if (auto* menu = qobject_cast<QMenu*>(widget))
            texts << menu->title();
    }
    for (QString& text : texts)
        text = plain(text);
    texts.removeAll(QString());
    return texts;
}

// The fields a user types or chooses in, as seen by the keyboard and a screen reader.
QList<QWidget*> inputsOf(QWidget* root)
{
    QList<QWidget*> inputs;
    for (QWidget* widget : root->findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(root) || !widget->isEnabled())
            continue;
        if (qobject_cast<QLineEdit*>(widget) && qobject_cast<QAbstractSpinBox*>(widget->parent()))
            continue; // the spin box's own editor
        if (qobject_cast<QLineEdit*>(widget) && qobject_cast<QComboBox*>(widget->parent()))
            continue; // the combo box's own editor
        if (qobject_cast<QLineEdit*>(widget) || qobject_cast<QComboBox*>(widget) ||
            qobject_cast<QAbstractSpinBox*>(widget) || qobject_cast<QPlainTextEdit*>(widget) ||
            qobject_cast<QTextEdit*>(widget))
            inputs.append(widget);
    }
    return inputs;
}

// A screen reader names a field by its accessible name or by the label it is the buddy of.
bool isNamed(QWidget* input, QWidget* root)
{
    if (!input->accessibleName().isEmpty())
        return true;
    const auto labels = root->findChildren<QLabel*>();
    return std::any_of(labels.begin(), labels.end(), [&](const QLabel* label) {
        for (QWidget* target = input; target && target != root; target = target->parentWidget())
            if (label->buddy() == target && !label->text().isEmpty())
                return true;
        return false;
    });
}

} // namespace

// Every window and dialog, opened the way a user opens them, checked as a whole: nothing left
// in English in a German session, every field named and reachable with the Tab key.
class InterfaceWalkTest : public AppFixture
{
protected:
    void SetUp() override
    {
        AppFixture::SetUp();
        m_settings->setValue(AppSettings::interfaceLanguageKey, u"de"_s);
        DesktopApplication::applyInterfaceLanguage(*m_settings);
        openWindow([](Workspace& workspace) { SampleData::populate(workspace); });
        for (const Invoice& invoice : workspace().invoices().invoices()) {
            if (invoice.isOverdue()) {
                ASSERT_TRUE(window().list()->selectId(invoice.id));
                break;
            }
        }
    }

    // The main window, then each dialog; `check` looks at each one while it is open.
    void walk(const std::function<void(const QString& name, QWidget* root)>& check)
    {
        check(u"main window"_s, &window());
        check(u"main menus"_s, window().menuBar());

        ProfileDialog profile(workspace(), *m_settings, ProfileDialog::Mode::edit, &window());
        profile.show();
        check(u"profile editor"_s, &profile);
        ProfileDialog onboarding(workspace(), *m_settings, ProfileDialog::Mode::onboarding, &window());
        onboarding.show();
        check(u"first-start guide"_s, &onboarding);

        trigger(u"editStyling"_s);
        if (auto* styling = window().findChild<StylingDialog*>()) {
            check(u"styling editor"_s, styling);
            styling->close();
        } else {
            ADD_FAILURE() << "the styling editor did not open";
        }
        PreferencesDialog preferences(workspace(), *m_settings, *window().services(), &window());
        preferences.show();
        check(u"preferences"_s, &preferences);

        window().showReminders();
        if (auto* reminders = window().findChild<RemindersDialog*>()) {
            check(u"reminders"_s, reminders);
            reminders->close();
        } else {
            ADD_FAILURE() << "the reminders did not open";
        }
        window().showPlugins();
        if (auto* plugins = window().findChild<PluginsDialog*>()) {
            check(u"plugins"_s, plugins);
            plugins->close();
        } else {
            ADD_FAILURE() << "the plugins did not open";
        }
        TextExtractionDialog fromText(*m_settings, &window());
        fromText.show();
        check(u"invoice from text"_s, &fromText);
        EInvoiceViewer* viewer = window().showEInvoiceViewer();
        check(u"e-invoice viewer"_s, viewer);
        viewer->close();
    }
};

TEST_F(InterfaceWalkTest, NoEnglishTextIsLeftInAGermanSession)
{
    const EnglishTexts english;
    QStringList leftovers;
    walk([&](const QString& name, QWidget* root) {
        const QStringList texts = textsOf(root);
        EXPECT_GT(texts.size(), 5) << name.toStdString() << " shows next to nothing";
        for (const QString& text : texts)
            if (english.isEnglish(text))
                leftovers << name + u": "_s + text;
    });
    leftovers.removeDuplicates();
    EXPECT_TRUE(leftovers.isEmpty()) << leftovers.join(u'\n').toStdString();
}

TEST_F(InterfaceWalkTest, EveryFieldHasANameAndTakesTheKeyboard)
{
    QStringList problems;
    walk([&](const QString& name, QWidget* root) {
        for (QWidget* input : inputsOf(root)) {
            const QString which = name + u": "_s + QString::fromLatin1(input->metaObject()->className()) +
                                  u" \""_s + input->objectName() + u'"';
            if (!isNamed(input, root))
                problems << which + u" has no accessible name or label"_s;
            if (!(input->focusPolicy() & Qt::TabFocus))
                problems << which + u" cannot be reached with Tab"_s;
        }
    });
    EXPECT_TRUE(problems.isEmpty()) << problems.join(u'\n').toStdString();
}
