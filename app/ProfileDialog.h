#pragma once

#include "model/Profile.h"

#include <QDialog>

class CodeComboBox;
class NumberFormatEdit;
class QCheckBox;
class QPlainTextEdit;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSettings;
class QSpinBox;
class QStackedWidget;
class QPushButton;
class Workspace;

// The sender profile: who sends the invoices, how to pay them, how they are numbered. On the
// first start it walks through the same fields page by page and says in plain words what an
// e-invoice still lacks; it can be skipped.
class ProfileDialog : public QDialog
{
    Q_OBJECT
public:
    enum class Mode
    {
        onboarding,
        edit
    };
    ProfileDialog(Workspace& workspace, QSettings& settings, Mode mode, QWidget* parent = nullptr);

    // The profile as the fields describe it now.
    Profile profile() const;

    void accept() override;

    // What e-invoices of this profile would lack, in plain words; empty when nothing.
    static QStringList missingForEInvoices(const Profile& profile);
    // True for an IBAN whose check digits are right (ISO 13616, mod 97).
    static bool isValidIban(const QString& iban);
    // What looks wrong with a typed e-mail address or VAT identifier; empty when it looks right
    // (or is empty). Only the form is checked: nothing is looked up.
    static QString emailProblem(const QString& email);
    static QString vatIdProblem(const QString& vatId);

private:
    QWidget* senderPage();
    QWidget* paymentPage();
    QWidget* numbersPage();
    QWidget* ratesPage();
    QWidget* remindersPage();
    QWidget* welcomePage();
    QWidget* finishPage();
    void showPage(int index);
    void updateHints();
    QLineEdit* field(const QString& name, const QString& text, const QString& placeholder = {});

    Workspace& m_workspace;
    QSettings& m_settings;
    Mode m_mode;
    Profile m_profile;

    QStackedWidget* m_pages = nullptr;
    QPushButton* m_back = nullptr;
    QPushButton* m_next = nullptr;
    QPushButton* m_skip = nullptr;
    QLabel* m_step = nullptr;

    QLineEdit* m_name = nullptr;
    QLineEdit* m_business = nullptr;
    QLineEdit* m_lineOne = nullptr;
    QLineEdit* m_lineTwo = nullptr;
    QLineEdit* m_postcode = nullptr;
    QLineEdit* m_city = nullptr;
    CodeComboBox* m_country = nullptr;
    QLineEdit* m_email = nullptr;
    QLabel* m_emailHint = nullptr;
    QLabel* m_vatHint = nullptr;
    QLineEdit* m_phone = nullptr;
    QLineEdit* m_website = nullptr;
    QLineEdit* m_taxNumber = nullptr;
    QLineEdit* m_vatNumber = nullptr;
    QLineEdit* m_iban = nullptr;
    QLineEdit* m_bic = nullptr;
    QLabel* m_ibanHint = nullptr;
    NumberFormatEdit* m_numberFormat = nullptr;
    QSpinBox* m_startNumber = nullptr;
    QLabel* m_numberPreview = nullptr;
    QSpinBox* m_daysToPay = nullptr;
    CodeComboBox* m_currency = nullptr;
    QDoubleSpinBox* m_vatRate = nullptr;
    QComboBox* m_language = nullptr;
    QComboBox* m_mailFormat = nullptr;
    QComboBox* m_eInvoiceProfile = nullptr;
    QLabel* m_missing = nullptr;
    // Edit mode only: the onboarding asks for the essentials.
    QLineEdit* m_profileName = nullptr;
    QLineEdit* m_state = nullptr;
    QLineEdit* m_additional = nullptr;
    QLineEdit* m_additionalNumbers = nullptr;
    CodeComboBox* m_taxResidency = nullptr;
    QComboBox* m_exemption = nullptr;
    QCheckBox* m_hideVat = nullptr;
    QComboBox* m_resetFrequency = nullptr;
    QSpinBox* m_startYear = nullptr;
    QLineEdit* m_cancellationPrefix = nullptr;
    QLineEdit* m_quotePrefix = nullptr;
    QLabel* m_cancellationPreview = nullptr;
    QLabel* m_quotePreview = nullptr;
    QDoubleSpinBox* m_hourlyRate = nullptr;
    QDoubleSpinBox* m_dailyRate = nullptr;
    QDoubleSpinBox* m_weeklyRate = nullptr;
    QPlainTextEdit* m_marginalNote = nullptr;
    QCheckBox* m_darkMode = nullptr;
    QCheckBox* m_friendlyReminder = nullptr;
    QSpinBox* m_reminderDays = nullptr;
    QDoubleSpinBox* m_lateFee = nullptr;
    QDoubleSpinBox* m_interestRate = nullptr;
    QPlainTextEdit* m_reminderTemplate = nullptr;
};
