#include "ProfileDialog.h"

#include "AppSettings.h"
#include "AppText.h"
#include "CodeComboBox.h"
#include "MenuButtons.h"
#include "NumberFormatEdit.h"
#include "WindowMemory.h"
#include "einvoice/XMLGenerator.h"
#include "numbering/NumberAssignment.h"
#include "numbering/NumberFormat.h"
#include "payment/Iban.h"
#include "reminders/ReminderVariable.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTabWidget>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

QLabel* explanation(const QString& text)
{
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

QLabel* heading(const QString& text)
{
    auto* label = new QLabel(text);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 1.3);
    font.setBold(true);
    label->setFont(font);
    return label;
}

QWidget* page(const QString& title, const QString& intro, QLayout* content)
{
    auto* widget = new QWidget;
    auto* layout = new QVBoxLayout(widget);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    if (!title.isEmpty())
        layout->addWidget(heading(title));
    if (!intro.isEmpty())
        layout->addWidget(explanation(intro));
    layout->addLayout(content);
    layout->addStretch();
    return widget;
}

} // namespace

ProfileDialog::ProfileDialog(Workspace& workspace, QSettings& settings, Mode mode, QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_settings(settings), m_mode(mode),
      m_profile(workspace.activeProfile())
{
    setObjectName(mode == Mode::onboarding ? u"onboarding"_s : u"profileDialog"_s);
    setWindowTitle(mode == Mode::onboarding ? ui(u"Welcome to Ledra")
                                            : ui(u"Profile “%1”").arg(m_profile.displayName()));
    auto* layout = new QVBoxLayout(this);

    QWidget* sender = senderPage();
    QWidget* payment = paymentPage();
    QWidget* numbers = numbersPage();

    if (mode == Mode::edit) {
        auto* tabs = new QTabWidget;
        tabs->addTab(sender, ui(u"Sender"));
        tabs->addTab(payment, ui(u"Payment and Tax"));
        tabs->addTab(numbers, ui(u"Numbers and Defaults"));
        tabs->addTab(ratesPage(), ui(u"Rates and Documents"));
        tabs->addTab(remindersPage(), ui(u"Reminders"));
        layout->addWidget(tabs);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
        connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        layout->addWidget(buttons);
    } else {
        m_pages = new QStackedWidget;
        m_pages->addWidget(welcomePage());
        m_pages->addWidget(sender);
        m_pages->addWidget(payment);
        m_pages->addWidget(numbers);
        m_pages->addWidget(finishPage());
        layout->addWidget(m_pages);
        auto* buttons = new QHBoxLayout;
        m_skip = new QPushButton(ui(u"Skip"));
        m_skip->setObjectName(u"skip"_s);
        m_skip->setToolTip(ui(u"Fill in the profile later with Profile › Edit Profile."));
        m_step = new QLabel;
        m_step->setForegroundRole(QPalette::PlaceholderText);
        m_back = new QPushButton(ui(u"Back"));
        m_back->setObjectName(u"back"_s);
        m_next = new QPushButton(ui(u"Continue"));
        m_next->setObjectName(u"next"_s);
        m_next->setDefault(true);
        buttons->addWidget(m_skip);
        buttons->addStretch();
        buttons->addWidget(m_step);
        buttons->addSpacing(12);
        buttons->addWidget(m_back);
        buttons->addWidget(m_next);
        layout->addLayout(buttons);
        connect(m_skip, &QPushButton::clicked, this, &QDialog::reject);
        connect(m_back, &QPushButton::clicked, this, [this] { showPage(m_pages->currentIndex() - 1); });
        connect(m_next, &QPushButton::clicked, this, [this] {
            if (m_pages->currentIndex() == m_pages->count() - 1)
                accept();
            else
                showPage(m_pages->currentIndex() + 1);
        });
        showPage(0);
    }
    updateHints();
    resize(mode == Mode::onboarding ? QSize(620, 520) : QSize(720, 620));
    if (mode == Mode::edit)
        WindowMemory::attach(this, u"profileDialog"_s);
}

QLineEdit* ProfileDialog::field(const QString& name, const QString& text, const QString& placeholder)
{
    auto* edit = new QLineEdit(text);
    edit->setObjectName(name);
    edit->setPlaceholderText(placeholder);
    connect(edit, &QLineEdit::textChanged, this, &ProfileDialog::updateHints);
    return edit;
}

QWidget* ProfileDialog::welcomePage()
{
    auto* content = new QVBoxLayout;
    content->addWidget(explanation(
        ui(u"Ledra keeps your invoices on this computer and writes them as PDF documents and as e-invoices "
           u"(XRechnung and ZUGFeRD), which German businesses must be able to send and receive.")));
    content->addWidget(explanation(ui(u"A few details about you go on every invoice. They take a minute now "
                                      u"and can be changed any time.")));
    return page(ui(u"Welcome"), QString(), content);
}

QWidget* ProfileDialog::senderPage()
{
    const Profile& p = m_profile;
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_name = field(u"name"_s, p.name, ui(u"Your name"));
    m_business = field(u"businessName"_s, p.businessName, ui(u"Your business, if it has a name"));
    m_lineOne = field(u"addressLineOne"_s, p.addressLineOne, ui(u"Street and number"));
    m_lineTwo = field(u"addressLineTwo"_s, p.addressLineTwo);
    m_lineTwo->setAccessibleName(ui(u"Address line 2"));
    m_postcode = field(u"postcode"_s, p.addressPostcode, ui(u"Postcode"));
    m_postcode->setMaximumWidth(m_postcode->fontMetrics().horizontalAdvance(u"000000000"_s) + 16);
    m_city = field(u"city"_s, p.addressCity, ui(u"City"));
    m_postcode->setAccessibleName(ui(u"Postcode"));
    m_city->setAccessibleName(ui(u"City"));
    m_country = new CodeComboBox(CodeComboBox::Kind::country);
    m_country->setObjectName(u"country"_s);
    m_country->setCode(p.addressCountry.code);
    m_email = field(u"email"_s, p.email, ui(u"Where customers write to you"));
    m_phone = field(u"phone"_s, p.phone);
    m_website = field(u"website"_s, p.website);
    form->addRow(ui(u"Name"), m_name);
    form->addRow(ui(u"Business"), m_business);
    form->addRow(ui(u"Address"), m_lineOne);
    form->addRow(QString(), m_lineTwo);
    auto* place = new QHBoxLayout;
    place->addWidget(m_postcode);
    place->addWidget(m_city);
    form->addRow(ui(u"Postcode, City"), place);
    form->addRow(ui(u"Country"), m_country);
    m_emailHint = explanation(QString());
    m_emailHint->setObjectName(u"emailHint"_s);
    form->addRow(ui(u"Email"), m_email);
    form->addRow(QString(), m_emailHint);
    form->addRow(ui(u"Phone"), m_phone);
    form->addRow(ui(u"Website"), m_website);
    if (m_mode == Mode::edit) {
        m_state = field(u"addressState"_s, p.addressState, ui(u"Only where addresses need it"));
        form->insertRow(5, ui(u"State or Region"), m_state);
        m_profileName = field(u"profileName"_s, p.profileName.value_or(QString()), p.displayName());
        m_profileName->setToolTip(ui(u"How the profile is called in the switcher; the name when empty."));
        form->insertRow(0, ui(u"Profile Name"), m_profileName);
        m_additional = field(u"additional"_s, p.additional, ui(u"Anything else the letterhead should say"));
        form->addRow(ui(u"Additional Info"), m_additional);
    }
    return page(m_mode == Mode::onboarding ? ui(u"Who sends the invoices") : QString(),
                m_mode == Mode::onboarding
                    ? ui(u"This is the letterhead of your documents and the seller of your "
                         u"e-invoices. E-invoices need an email address and a phone number.")
                    : QString(),
                form);
}

QWidget* ProfileDialog::paymentPage()
{
    const Profile& p = m_profile;
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_taxNumber = field(u"taxNumber"_s, p.taxNumber, ui(u"From your tax office, e.g. 30/123/45678"));
    m_vatNumber = field(u"vatNumber"_s, p.vatNumber, ui(u"With country prefix, e.g. DE123456789"));
    m_iban = field(u"iban"_s, p.iban, ui(u"Where customers pay to"));
    m_bic = field(u"bic"_s, p.bic);
    m_ibanHint = explanation(QString());
    m_ibanHint->setObjectName(u"ibanHint"_s);
    m_vatHint = explanation(QString());
    m_vatHint->setObjectName(u"vatHint"_s);
    form->addRow(ui(u"Tax Number"), m_taxNumber);
    form->addRow(ui(u"VAT ID"), m_vatNumber);
    form->addRow(QString(), m_vatHint);
    form->addRow(ui(u"IBAN"), m_iban);
    form->addRow(QString(), m_ibanHint);
    form->addRow(ui(u"BIC"), m_bic);
    if (m_mode == Mode::edit) {
        m_additionalNumbers =
            field(u"additionalNumbers"_s, p.additionalNumbers, ui(u"E.g. commercial register and court"));
        form->addRow(ui(u"Further Numbers"), m_additionalNumbers);
        m_taxResidency = new CodeComboBox(CodeComboBox::Kind::country);
        m_taxResidency->setObjectName(u"taxResidency"_s);
        m_taxResidency->setCode(p.taxResidency.code);
        form->addRow(ui(u"Taxed in"), m_taxResidency);
        m_exemption = new QComboBox;
        m_exemption->setObjectName(u"vatExemptionReason"_s);
        for (const VATExemptionReason reason : allCases<VATExemptionReason>())
            m_exemption->addItem(labelText(reason), int(reason));
        m_exemption->setCurrentIndex(m_exemption->findData(int(p.vatExemptionReason)));
        m_exemption->setToolTip(
            ui(u"New invoices take this reason; the document says why no VAT is charged."));
        form->addRow(ui(u"VAT Exemption"), m_exemption);
        m_hideVat = new QCheckBox(ui(u"Leave VAT out of the documents"));
        m_hideVat->setObjectName(u"hideVat"_s);
        m_hideVat->setChecked(p.hideVat);
        form->addRow(QString(), m_hideVat);
    }
    return page(
        m_mode == Mode::onboarding ? ui(u"Tax and bank") : QString(),
        ui(u"Invoices must show your tax number or your VAT ID. The bank account is where customers pay; "
           u"e-invoices need IBAN and BIC."),
        form);
}

QWidget* ProfileDialog::numbersPage()
{
    const Profile& p = m_profile;
    auto* form = new QFormLayout;
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_numberFormat = new NumberFormatEdit;
    m_numberFormat->setObjectName(u"numberFormat"_s);
    m_numberFormat->setAccessibleName(ui(u"Number Format"));
    m_numberFormat->setFormat(p.numberFormat);
    m_numberFormat->setToolTip(
        ui(u"Text with placeholders: {NNN} the running number with three digits, {YYYY} "
           u"the year, {MM} the month, {DD} the day, {X} a text per invoice."));
    connect(m_numberFormat, &NumberFormatEdit::formatChanged, this, &ProfileDialog::updateHints);
    QPushButton* insert = MenuButtons::withMenu(ui(u"Insert"), m_numberFormat->insertMenu());
    insert->setObjectName(u"insertPlaceholder"_s);
    insert->setToolTip(ui(u"Insert a placeholder at the cursor"));
    auto* formatRow = new QHBoxLayout;
    formatRow->addWidget(m_numberFormat, 1);
    formatRow->addWidget(insert);
    m_startNumber = new QSpinBox;
    m_startNumber->setObjectName(u"startNumber"_s);
    m_startNumber->setRange(1, 99999999);
    m_startNumber->setValue(p.startNumber);
    connect(m_startNumber, &QSpinBox::valueChanged, this, &ProfileDialog::updateHints);
    m_numberPreview = new QLabel;
    m_numberPreview->setObjectName(u"numberPreview"_s);
    m_daysToPay = new QSpinBox;
    m_daysToPay->setRange(0, 365);
    m_daysToPay->setValue(p.daysToPay);
    m_daysToPay->setSuffix(u" "_s + ui(u"days"));
    m_currency = new CodeComboBox(CodeComboBox::Kind::currency);
    m_currency->setCode(p.currency.code);
    m_vatRate = new QDoubleSpinBox;
    m_vatRate->setRange(0, 100);
    m_vatRate->setDecimals(1);
    m_vatRate->setSuffix(u" %"_s);
    m_vatRate->setValue(p.vatPercentage);
    m_language = new QComboBox;
    for (const Language language : allCases<Language>())
        m_language->addItem(labelText(language), int(language));
    m_language->setCurrentIndex(m_language->findData(int(p.language)));
    form->addRow(ui(u"Number Format"), formatRow);
    form->addRow(ui(u"First Number"), m_startNumber);
    form->addRow(ui(u"Next Invoice"), m_numberPreview);
    if (m_mode == Mode::edit) {
        m_resetFrequency = new QComboBox;
        m_resetFrequency->setObjectName(u"resetNumberFrequency"_s);
        for (const NumberResetFrequency frequency : allCases<NumberResetFrequency>())
            m_resetFrequency->addItem(labelText(frequency), int(frequency));
        m_resetFrequency->setCurrentIndex(m_resetFrequency->findData(int(p.resetNumberFrequency)));
        m_startYear = new QSpinBox;
        m_startYear->setObjectName(u"startNumberYear"_s);
        m_startYear->setRange(1999, 2200);
        m_startYear->setSpecialValueText(ui(u"no year"));
        m_startYear->setMinimum(1999);
        m_startYear->setValue(p.startNumberYear.value_or(1999));
        m_startYear->setToolTip(ui(u"With a yearly restart, the first number applies only in this year; "
                                   u"later years begin at 1."));
        m_cancellationPrefix = field(u"cancellationPrefix"_s, p.cancellationPrefix);
        m_quotePrefix = field(u"quotePrefix"_s, p.quotePrefix);
        m_cancellationPreview = new QLabel;
        m_cancellationPreview->setObjectName(u"cancellationPreview"_s);
        m_quotePreview = new QLabel;
        m_quotePreview->setObjectName(u"quotePreview"_s);
        for (QLabel* preview : {m_numberPreview, m_cancellationPreview, m_quotePreview})
            preview->setTextInteractionFlags(Qt::TextSelectableByMouse);
        connect(m_resetFrequency, &QComboBox::currentIndexChanged, this, &ProfileDialog::updateHints);
        connect(m_startYear, &QSpinBox::valueChanged, this, &ProfileDialog::updateHints);
        form->insertRow(2, ui(u"Start Again"), m_resetFrequency);
        form->insertRow(3, ui(u"First Number in"), m_startYear);
        form->addRow(ui(u"Cancellation Prefix"), m_cancellationPrefix);
        form->addRow(ui(u"Next Cancellation"), m_cancellationPreview);
        form->addRow(ui(u"Quote Prefix"), m_quotePrefix);
        form->addRow(ui(u"Next Quote"), m_quotePreview);
    }
    form->addRow(ui(u"Payment Term"), m_daysToPay);
    form->addRow(ui(u"Currency"), m_currency);
    form->addRow(ui(u"VAT Rate"), m_vatRate);
    form->addRow(ui(u"Document Language"), m_language);
    m_mailFormat = new QComboBox;
    m_mailFormat->setObjectName(u"eInvoiceFormat"_s);
    for (const EInvoiceFormat format : allCases<EInvoiceFormat>())
        m_mailFormat->addItem(labelText(format), int(format));
    m_mailFormat->setCurrentIndex(m_mailFormat->findData(int(p.eInvoiceFormat)));
    m_mailFormat->setToolTip(ui(u"What the mail add-on attaches when you send an invoice of this profile."));
    form->addRow(ui(u"Mail Attachment"), m_mailFormat);
    m_eInvoiceProfile = new QComboBox;
    m_eInvoiceProfile->setObjectName(u"eInvoiceProfile"_s);
    for (const EInvoiceProfile choice : allCases<EInvoiceProfile>())
        m_eInvoiceProfile->addItem(choice == EInvoiceProfile::automatic ? ui(u"Automatic (by the customer)")
                                                                        : labelText(choice),
                                   int(choice));
    m_eInvoiceProfile->setCurrentIndex(m_eInvoiceProfile->findData(int(p.eInvoiceProfile)));
    m_eInvoiceProfile->setToolTip(ui(
        u"The rules of the e-invoices (XML and ZUGFeRD PDF): XRechnung, which public customers require, or "
        u"EN 16931 for businesses. Automatic chooses XRechnung when the customer has a Leitweg-ID."));
    form->addRow(ui(u"E-Invoice Profile"), m_eInvoiceProfile);
    return page(m_mode == Mode::onboarding ? ui(u"Numbers and defaults") : QString(),
                ui(u"Every invoice gets the next number in this format. New invoices take the payment term, "
                   u"currency, VAT rate and language from here."),
                form);
}

QWidget* ProfileDialog::ratesPage()
{
    const Profile& p = m_profile;
    auto* form = new QFormLayout;
    auto rate = [&](QDoubleSpinBox*& box, const QString& name, double value) {
        box = new QDoubleSpinBox;
        box->setObjectName(name);
        box->setRange(0, 1000000);
        box->setDecimals(2);
        box->setGroupSeparatorShown(true);
        box->setSuffix(u" "_s + p.currency.code);
        box->setValue(value);
    };
    rate(m_hourlyRate, u"hourlyRate"_s, p.hourlyRate);
    rate(m_dailyRate, u"dailyRate"_s, p.dailyRate);
    rate(m_weeklyRate, u"weeklyRate"_s, p.weeklyRate);
    form->addRow(ui(u"Hourly Rate"), m_hourlyRate);
    form->addRow(ui(u"Daily Rate"), m_dailyRate);
    form->addRow(ui(u"Weekly Rate"), m_weeklyRate);
    m_marginalNote = new QPlainTextEdit(p.marginalNote);
    m_marginalNote->setObjectName(u"marginalNote"_s);
    m_marginalNote->setAccessibleName(ui(u"Side Note"));
    m_marginalNote->setTabChangesFocus(true);
    m_marginalNote->setMaximumHeight(90);
    form->addRow(ui(u"Side Note"), m_marginalNote);
    m_darkMode = new QCheckBox(ui(u"Show this profile's documents dark in dark mode"));
    m_darkMode->setObjectName(u"invoiceDarkMode"_s);
    m_darkMode->setChecked(p.invoiceDarkMode);
    form->addRow(QString(), m_darkMode);
    return page(QString(),
                ui(u"A new item in hours, days or weeks takes its price from these rates. The side note "
                   u"is printed in the side column of every document."),
                form);
}

QWidget* ProfileDialog::remindersPage()
{
    const Profile& p = m_profile;
    auto* form = new QFormLayout;
    m_friendlyReminder = new QCheckBox(ui(u"Begin with a friendly payment reminder, without a fee"));
    m_friendlyReminder->setObjectName(u"friendlyReminderEnabled"_s);
    m_friendlyReminder->setChecked(p.friendlyReminderEnabled);
    form->addRow(QString(), m_friendlyReminder);
    m_reminderDays = new QSpinBox;
    m_reminderDays->setObjectName(u"reminderDaysToPay"_s);
    m_reminderDays->setRange(0, 365);
    m_reminderDays->setSuffix(u" "_s + ui(u"days"));
    m_reminderDays->setValue(p.reminderDaysToPay);
    form->addRow(ui(u"Payment Term"), m_reminderDays);
    m_lateFee = new QDoubleSpinBox;
    m_lateFee->setObjectName(u"latePaymentFee"_s);
    m_lateFee->setRange(0, 100000);
    m_lateFee->setDecimals(2);
    m_lateFee->setSuffix(u" "_s + p.currency.code);
    m_lateFee->setValue(p.latePaymentFee);
    form->addRow(ui(u"Late Payment Fee"), m_lateFee);
    m_interestRate = new QDoubleSpinBox;
    m_interestRate->setObjectName(u"latePaymentInterestRate"_s);
    m_interestRate->setRange(0, 100);
    m_interestRate->setDecimals(2);
    m_interestRate->setSuffix(u" %"_s);
    m_interestRate->setValue(p.latePaymentInterestRate);
    form->addRow(ui(u"Interest per Year"), m_interestRate);
    m_reminderTemplate = new QPlainTextEdit(p.reminderTemplate);
    m_reminderTemplate->setObjectName(u"reminderTemplate"_s);
    m_reminderTemplate->setAccessibleName(ui(u"Reminder Text"));
    m_reminderTemplate->setTabChangesFocus(true);
    m_reminderTemplate->setPlaceholderText(ui(u"Empty: the standard text of the document language"));
    form->addRow(ui(u"Reminder Text"), m_reminderTemplate);
    QPushButton* variables = MenuButtons::reminderVariables(m_reminderTemplate);
    form->addRow(QString(), variables);
    return page(QString(),
                ui(u"New payment reminders start with these values; each one can still be changed."), form);
}

QWidget* ProfileDialog::finishPage()
{
    auto* content = new QVBoxLayout;
    m_missing = new QLabel;
    m_missing->setObjectName(u"missing"_s);
    m_missing->setWordWrap(true);
    m_missing->setTextFormat(Qt::RichText);
    content->addWidget(m_missing);
    return page(ui(u"Ready"), QString(), content);
}

void ProfileDialog::showPage(int index)
{
    if (!m_pages)
        return;
    index = std::clamp(index, 0, m_pages->count() - 1);
    m_pages->setCurrentIndex(index);
    const bool last = index == m_pages->count() - 1;
    m_back->setEnabled(index > 0);
    m_next->setText(last ? ui(u"Start Using Ledra") : ui(u"Continue"));
    m_skip->setVisible(!last);
    m_step->setText(index > 0 && !last ? ui(u"Step %1 of %2").arg(index).arg(m_pages->count() - 2)
                                       : QString());
    updateHints();
}

Profile ProfileDialog::profile() const
{
    Profile p = m_profile;
    p.name = m_name->text().trimmed();
    p.businessName = m_business->text().trimmed();
    p.addressLineOne = m_lineOne->text().trimmed();
    p.addressLineTwo = m_lineTwo->text().trimmed();
    p.addressPostcode = m_postcode->text().trimmed();
    p.addressCity = m_city->text().trimmed();
    p.addressCountry = Country{m_country->code()};
    p.email = m_email->text().trimmed();
    p.phone = m_phone->text().trimmed();
    p.website = m_website->text().trimmed();
    p.taxNumber = m_taxNumber->text().trimmed();
    p.vatNumber = m_vatNumber->text().trimmed().toUpper().remove(u' ');
    p.iban = m_iban->text().trimmed().toUpper();
    p.bic = m_bic->text().trimmed().toUpper();
    p.numberFormat = m_numberFormat->format().isEmpty() ? u"{YYYY}-{NNN}"_s : m_numberFormat->format();
    p.startNumber = m_startNumber->value();
    p.daysToPay = m_daysToPay->value();
    p.currency = Currency{m_currency->code()};
    p.vatPercentage = m_vatRate->value();
    p.language = Language(m_language->currentData().toInt());
    p.eInvoiceFormat = EInvoiceFormat(m_mailFormat->currentData().toInt());
    p.eInvoiceProfile = EInvoiceProfile(m_eInvoiceProfile->currentData().toInt());
    if (m_mode != Mode::edit)
        return p;
    const QString profileName = m_profileName->text().trimmed();
    p.profileName = profileName.isEmpty() ? std::nullopt : std::optional(profileName);
    p.addressState = m_state->text().trimmed();
    p.additional = m_additional->text().trimmed();
    p.additionalNumbers = m_additionalNumbers->text().trimmed();
    p.taxResidency = Country{m_taxResidency->code()};
    p.vatExemptionReason = VATExemptionReason(m_exemption->currentData().toInt());
    p.hideVat = m_hideVat->isChecked();
    p.resetNumberFrequency = NumberResetFrequency(m_resetFrequency->currentData().toInt());
    p.startNumberYear =
        m_startYear->value() == m_startYear->minimum() ? std::nullopt : std::optional(m_startYear->value());
    p.cancellationPrefix = m_cancellationPrefix->text();
    p.quotePrefix = m_quotePrefix->text();
    p.hourlyRate = m_hourlyRate->value();
    p.dailyRate = m_dailyRate->value();
    p.weeklyRate = m_weeklyRate->value();
    p.marginalNote = m_marginalNote->toPlainText();
    p.invoiceDarkMode = m_darkMode->isChecked();
    p.friendlyReminderEnabled = m_friendlyReminder->isChecked();
    p.reminderDaysToPay = m_reminderDays->value();
    p.latePaymentFee = m_lateFee->value();
    p.latePaymentInterestRate = m_interestRate->value();
    p.reminderTemplate = m_reminderTemplate->toPlainText();
    return p;
}

QStringList ProfileDialog::missingForEInvoices(const Profile& profile)
{
    // A fictitious complete invoice from this sender: what is still missing is the sender's part.
    Invoice probe = Invoice::makeNew();
    probe.senderName = profile.name;
    probe.senderEmail = profile.email;
    probe.senderPhone = profile.phone;
    probe.senderAddressPostcode = profile.addressPostcode;
    probe.senderAddressCity = profile.addressCity;
    probe.senderAddressCountry = profile.addressCountry;
    probe.senderTaxNumber = profile.taxNumber;
    probe.senderVatNumber = profile.vatNumber;
    probe.senderIban = profile.iban;
    probe.senderBic = profile.bic;
    probe.name = u"-"_s;
    probe.email = u"-"_s;
    probe.addressPostcode = u"-"_s;
    probe.addressCity = u"-"_s;
    probe.addressCountry = Country{u"DE"_s};
    probe.currency = profile.currency;
    InvoiceItem item = InvoiceItem::makeNew();
    item.item = u"-"_s;
    item.vatPercentage = 19;
    probe.items = {item};
    QStringList missing;
    // Automatic may choose XRechnung for a public customer, which asks the most of the sender.
    const EInvoiceProfile strictest = profile.eInvoiceProfile == EInvoiceProfile::en16931
                                          ? EInvoiceProfile::en16931
                                          : EInvoiceProfile::xrechnung;
    for (const MissingField& field : XMLGenerator::missingFieldList(probe, strictest))
        missing.append(field.text);
    return missing;
}

QString ProfileDialog::emailProblem(const QString& email)
{
    static const QRegularExpression form(u"^[^@\\s]+@[^@\\s]+\\.[^@\\s.]{2,}$"_s);
    const QString trimmed = email.trimmed();
    if (trimmed.isEmpty() || form.match(trimmed).hasMatch())
        return {};
    return ui(u"This does not look like an e-mail address (name@example.com).");
}

QString ProfileDialog::vatIdProblem(const QString& vatId)
{
    const QString compact = QString(vatId).remove(u' ').remove(u'.').remove(u'-').toUpper();
    if (compact.isEmpty())
        return {};
    static const QRegularExpression prefixed(u"^[A-Z]{2}[0-9A-Z+*]{2,12}$"_s);
    static const QRegularExpression german(u"^DE[0-9]{9}$"_s);
    if (!prefixed.match(compact).hasMatch())
        return ui(u"A VAT ID starts with its country code, e.g. DE123456789.");
    if (compact.startsWith(u"DE"_s) && !german.match(compact).hasMatch())
        return ui(u"A German VAT ID is DE followed by nine digits.");
    return {};
}

bool ProfileDialog::isValidIban(const QString& iban)
{
    return Iban::isValid(iban);
}

void ProfileDialog::updateHints()
{
    if (!m_numberPreview || !m_iban || !m_name)
        return;
    const Profile p = profile();
    // The numbers the store would give next, with the settings as they stand in the form.
    auto preview = [&](InvoiceType type) {
        Invoice next = Invoice::makeNew();
        next.type = type;
        next.number = NumberAssignment::nextNumber(type, m_workspace.invoices().invoices(), p);
        next.date = Clock::nowTimestamp();
        next.numberVariable = u"X"_s;
        next.numberFormat = p.numberFormat;
        return NumberFormat::displayNumber(next, p);
    };
    m_numberPreview->setText(preview(InvoiceType::invoice));
    if (m_cancellationPreview) {
        m_cancellationPreview->setText(preview(InvoiceType::cancellation));
        m_quotePreview->setText(preview(InvoiceType::quote));
    }
    const QString iban = m_iban->text().trimmed();
    m_ibanHint->setText(iban.isEmpty() || isValidIban(iban)
                            ? QString()
                            : ui(u"This IBAN looks mistyped: its check digits do not match."));
    m_ibanHint->setVisible(!m_ibanHint->text().isEmpty());
    if (m_emailHint) {
        m_emailHint->setText(emailProblem(m_email->text()));
        m_emailHint->setVisible(!m_emailHint->text().isEmpty());
    }
    if (m_vatHint) {
        m_vatHint->setText(vatIdProblem(m_vatNumber->text()));
        m_vatHint->setVisible(!m_vatHint->text().isEmpty());
    }
    if (m_missing) {
        const QStringList missing = missingForEInvoices(p);
        if (missing.isEmpty()) {
            m_missing->setText(ui(u"Everything e-invoices need is there. Create your first invoice with "
                                  u"<b>New Invoice</b> (Ctrl+N)."));
        } else {
            QString text =
                ui(u"You can write invoices now. For e-invoices, these are still missing:") + u"<ul>"_s;
            for (const QString& entry : missing)
                text += u"<li>"_s + entry.toHtmlEscaped() + u"</li>"_s;
            text += u"</ul>"_s + ui(u"Add them any time with Profile › Edit Profile.");
            m_missing->setText(text);
        }
    }
}

void ProfileDialog::accept()
{
    const Profile p = profile();
    if (!(p == m_profile)) {
        if (const auto error = m_workspace.profiles().saveProfile(p)) {
            QMessageBox::warning(this, ui(u"Profile Not Saved"),
                                 ui(u"The profile could not be saved: %1").arg(*error));
            return;
        }
    }
    m_settings.setValue(AppSettings::onboardingDoneKey, true);
    QDialog::accept();
}
