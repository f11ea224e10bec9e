#include "RemindersDialog.h"

#include "AppText.h"
#include "DocumentActions.h"
#include "MenuButtons.h"
#include "PreviewWidget.h"
#include "WindowMemory.h"
#include "numbering/NumberFormat.h"
#include "reminders/ReminderManager.h"
#include "reminders/ReminderVariable.h"
#include "render/ReminderDocument.h"
#include "tasks/Workspace.h"

#include <QDateEdit>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {} // namespace

RemindersDialog::RemindersDialog(Workspace& workspace, DocumentActions& documents, const Invoice& invoice,
                                 QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_documents(documents), m_invoice(invoice),
      m_chain(new QListWidget), m_date(new QDateEdit), m_fee(new QDoubleSpinBox),
      m_interest(new QDoubleSpinBox), m_text(new QPlainTextEdit), m_createNext(new QPushButton),
      m_delete(new QPushButton(ui(u"Delete…"))), m_export(new QPushButton(ui(u"Export PDF…"))),
      m_preview(new PreviewWidget), m_saveTimer(new QTimer(this))
{
    setObjectName(u"reminders"_s);
    setWindowTitle(
        ui(u"Payment Reminders for %1").arg(NumberFormat::displayNumber(invoice, workspace.activeProfile())));

    // The chain, oldest first, with the button for the next one.
    auto* chainPanel = new QWidget;
    auto* chainLayout = new QVBoxLayout(chainPanel);
    chainLayout->setContentsMargins(0, 0, 0, 0);
    m_chain->setObjectName(u"reminderChain"_s);
    m_chain->setAccessibleName(ui(u"Payment Reminders"));
    m_createNext->setObjectName(u"createNextReminder"_s);
    m_delete->setObjectName(u"deleteReminder"_s);
    chainLayout->addWidget(m_chain, 1);
    chainLayout->addWidget(m_createNext);
    chainLayout->addWidget(m_delete);

    // The editor of the selected reminder.
    auto* editor = new QWidget;
    auto* form = new QFormLayout(editor);
    form->setContentsMargins(0, 0, 0, 0);
    m_date->setObjectName(u"reminderDate"_s);
    m_date->setCalendarPopup(true);
    m_fee->setObjectName(u"reminderFee"_s);
    m_fee->setRange(0, 100000);
    m_fee->setDecimals(2);
    m_fee->setSuffix(u" "_s + invoice.currency.code);
    m_interest->setObjectName(u"reminderInterest"_s);
    m_interest->setRange(0, 100);
    m_interest->setDecimals(2);
    m_interest->setSuffix(ui(u" % a year"));
    m_text->setObjectName(u"reminderText"_s);
    m_text->setAccessibleName(ui(u"Text"));
    m_text->setTabChangesFocus(true);
    QPushButton* variables = MenuButtons::reminderVariables(m_text);
    auto* hint = new QLabel(ui(u"Variables such as {{amount}} become their values in the letter."));
    hint->setForegroundRole(QPalette::PlaceholderText);
    hint->setWordWrap(true);
    form->addRow(ui(u"Date"), m_date);
    form->addRow(ui(u"Late Payment Fee"), m_fee);
    form->addRow(ui(u"Interest"), m_interest);
    form->addRow(ui(u"Text"), m_text);
    auto* textTools = new QHBoxLayout;
    textTools->addWidget(variables);
    textTools->addWidget(hint, 1);
    form->addRow(QString(), textTools);

    auto* splitter = new QSplitter;
    splitter->addWidget(chainPanel);
    splitter->addWidget(editor);
    splitter->addWidget(m_preview);
    splitter->setStretchFactor(0, 1);
    splitter->setStretchFactor(1, 3);
    splitter->setStretchFactor(2, 3);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    m_export->setObjectName(u"exportReminder"_s);
    buttons->addButton(m_export, QDialogButtonBox::ActionRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);
    layout->addWidget(buttons);

    m_saveTimer->setSingleShot(true);
    m_saveTimer->setInterval(400);
    connect(m_saveTimer, &QTimer::timeout, this, &RemindersDialog::saveNow);
    connect(m_chain, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (!m_loading && item)
            select(item->data(Qt::UserRole).toUuid());
    });
    connect(m_date, &QDateEdit::dateChanged, this, &RemindersDialog::edited);
    connect(m_fee, &QDoubleSpinBox::valueChanged, this, &RemindersDialog::edited);
    connect(m_interest, &QDoubleSpinBox::valueChanged, this, &RemindersDialog::edited);
    connect(m_text, &QPlainTextEdit::textChanged, this, &RemindersDialog::edited);
    connect(m_createNext, &QPushButton::clicked, this, &RemindersDialog::createNext);
    connect(m_delete, &QPushButton::clicked, this, &RemindersDialog::deleteCurrent);
    connect(m_export, &QPushButton::clicked, this, [this] {
        saveNow();
        if (m_current)
            m_documents.exportReminderPdf(*m_current, m_invoice);
    });
    // Files changed by another program, or by the command line.
    connect(&m_workspace.reminders(), &ReminderManager::remindersChanged, this, [this] {
        if (!m_dirty)
            reload(m_current ? m_current->id : QUuid());
    });

    resize(1100, 640);
    WindowMemory::attach(this, u"remindersDialog"_s);
    reload();
}

RemindersDialog::~RemindersDialog()
{
    saveNow();
}

void RemindersDialog::reload(const QUuid& selectId)
{
    const QList<Reminder> chain = m_workspace.reminders().remindersOf(m_invoice.id);
    m_loading = true;
    m_chain->clear();
    const Language language = Strings::interfaceLanguage();
    for (const Reminder& reminder : chain) {
        auto* item =
            new QListWidgetItem(reminder.title(language) + u"\n"_s +
                                    QLocale().toString(reminder.date.localDate(), QLocale::ShortFormat),
                                m_chain);
        item->setData(Qt::UserRole, reminder.id);
    }
    m_loading = false;
    QUuid target = selectId;
    if (target.isNull() && !chain.isEmpty())
        target = chain.last().id;
    select(target);
    updateButtons();
}

void RemindersDialog::select(const QUuid& id)
{
    saveNow();
    const Reminder* reminder = m_workspace.reminders().reminder(id);
    m_current = reminder ? std::optional<Reminder>(*reminder) : std::nullopt;
    m_loading = true;
    for (int row = 0; row < m_chain->count(); ++row)
        if (m_chain->item(row)->data(Qt::UserRole).toUuid() == id)
            m_chain->setCurrentRow(row);
    for (QWidget* field : {static_cast<QWidget*>(m_date), static_cast<QWidget*>(m_fee),
                           static_cast<QWidget*>(m_interest), static_cast<QWidget*>(m_text)})
        field->setEnabled(m_current.has_value());
    if (m_current) {
        m_date->setDate(m_current->date.localDate());
        m_fee->setValue(m_current->fee);
        m_interest->setValue(m_current->interestPercentage);
        m_text->setPlainText(m_current->text);
    } else {
        m_text->clear();
    }
    m_loading = false;
    updatePreview();
    updateButtons();
}

void RemindersDialog::edited()
{
    if (m_loading || !m_current)
        return;
    m_current->date = m_current->date.withLocalDate(m_date->date());
    m_current->fee = m_fee->value();
    m_current->interestPercentage = m_interest->value();
    m_current->text = m_text->toPlainText();
    m_dirty = true;
    m_saveTimer->start();
}

void RemindersDialog::saveNow()
{
    m_saveTimer->stop();
    if (!m_dirty || !m_current)
        return;
    m_dirty = false;
    const Reminder* stored = m_workspace.reminders().reminder(m_current->id);
    if (stored && *stored == *m_current)
        return;
    if (const auto error = m_workspace.reminders().saveReminder(*m_current))
        QMessageBox::warning(this, ui(u"Payment Reminders"),
                             ui(u"The payment reminder could not be saved: %1").arg(*error));
    // The chain shows the new date; the letter the new text.
    for (int row = 0; row < m_chain->count(); ++row)
        if (m_chain->item(row)->data(Qt::UserRole).toUuid() == m_current->id)
            m_chain->item(row)->setText(
                m_current->title(Strings::interfaceLanguage()) + u"\n"_s +
                QLocale().toString(m_current->date.localDate(), QLocale::ShortFormat));
    updatePreview();
}

void RemindersDialog::createNext()
{
    saveNow();
    Reminder created;
    if (const auto error = m_workspace.reminders().createReminder(m_invoice.id, &created)) {
        QMessageBox::warning(this, ui(u"Payment Reminders"), *error);
        return;
    }
    reload(created.id);
}

void RemindersDialog::deleteCurrent()
{
    if (!m_current)
        return;
    const auto answer = QMessageBox::question(
        this, ui(u"Delete Payment Reminder"),
        ui(u"Delete “%1”? Its file is removed.").arg(m_current->title(Strings::interfaceLanguage())));
    if (answer != QMessageBox::Yes)
        return;
    m_saveTimer->stop();
    m_dirty = false;
    if (const auto error = m_workspace.reminders().deleteReminder(m_current->id)) {
        QMessageBox::warning(this, ui(u"Payment Reminders"), *error);
        return;
    }
    m_current.reset();
    reload();
}

void RemindersDialog::updatePreview()
{
    if (!m_current) {
        m_preview->setDocument(nullptr);
        return;
    }
    m_preview->setDocument(std::make_shared<ReminderDocument>(
        *m_current, m_invoice, m_workspace.activeProfile(), m_workspace.activeStyling()));
}

void RemindersDialog::updateButtons()
{
    const bool any = m_workspace.reminders().remindersOf(m_invoice.id).size() > 0;
    QString error;
    const bool canAdd = m_workspace.reminders().nextReminder(m_invoice.id, &error).has_value();
    m_createNext->setText(any ? ui(u"Create Next Payment Reminder") : ui(u"Create Payment Reminder"));
    m_createNext->setEnabled(canAdd);
    m_createNext->setToolTip(canAdd ? QString() : error);
    m_delete->setEnabled(m_current.has_value());
    m_export->setEnabled(m_current.has_value());
}
