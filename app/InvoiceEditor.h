#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"

#include <QHash>
#include <QPointer>
#include <QUndoStack>
#include <QWidget>

#include <functional>
#include <optional>

class CodeComboBox;
class ItemsModel;
class QCheckBox;
class QComboBox;
class QDateEdit;
class QDoubleSpinBox;
class QFormLayout;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QScrollArea;
class QSpinBox;
class QStackedWidget;
class QTableView;
class QToolButton;

// The form of one invoice: recipient, numbers and dates, items, prices and discount, notes and
// the sender's data. It edits a copy of the invoice; every change is one undoable step on the
// invoice's undo stack and is announced through edited(), upon which the window saves it and
// renders the preview. Nothing here touches files.
class InvoiceEditor : public QWidget
{
    Q_OBJECT
public:
    explicit InvoiceEditor(QWidget* parent = nullptr);

    // The profile the invoice belongs to: number display, rates of new lines.
    void setProfile(const Profile& profile);
    // Opens an invoice with its undo stack, or shows the empty state.
    void setInvoice(const std::optional<Invoice>& invoice, QUndoStack* undoStack);
    const std::optional<Invoice>& invoice() const { return m_invoice; }

    // A change that did not come from the form (a menu command, a change on disk): shown as
    // it is, without touching the undo history. `undoable` puts it on the stack instead.
    void replaceInvoice(const Invoice& invoice);
    void changeInvoice(const QString& text, const std::function<void(Invoice&)>& change);

    // Line commands, also offered by the window's menus.
    void addItem();
    void removeSelectedItems();
    void moveCurrentItem(int delta);
    std::optional<InvoiceItem> currentItem() const;
    void insertItem(const InvoiceItem& item);
    bool hasItemFocus() const;

    // Takes the user to the field that a missing-field entry names (its English key, and the
    // line for per-line entries).
    void focusField(const QString& key, std::optional<int> item);
    void focusNumber();

    QTableView* itemsView() const { return m_items; }

Q_SIGNALS:
    void edited(const Invoice& invoice);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* buildForm();
    static void alignLabelColumns(QWidget* form);
    QWidget* section(const QString& title, QLayout* content, QWidget* trailing = nullptr);
    QLineEdit* lineEdit(const QString& key, const QString& placeholder,
                        std::function<void(Invoice&, const QString&)> assign);
    void change(const QString& field, const QString& text, const std::function<void(Invoice&)>& mutate);
    void applyFromHistory(const Invoice& invoice);
    void loadWidgets();
    void refreshDerived();
    void onItemsEdited(QList<InvoiceItem> items, int row, int column);
    void updateSenderVisibility(bool shown);

    Profile m_profile;
    std::optional<Invoice> m_invoice;
    QPointer<QUndoStack> m_undoStack;
    bool m_loading = false;

    QStackedWidget* m_pages = nullptr;
    QScrollArea* m_scroll = nullptr;
    QLabel* m_title = nullptr;
    QLabel* m_subtitle = nullptr;
    QComboBox* m_status = nullptr;

    QHash<QString, QWidget*> m_fields; // English field key -> its widget
    QHash<QString, std::function<QString(const Invoice&)>> m_lineValues;
    CodeComboBox* m_country = nullptr;
    CodeComboBox* m_senderCountry = nullptr;
    CodeComboBox* m_currency = nullptr;
    QComboBox* m_language = nullptr;
    QComboBox* m_eInvoiceProfile = nullptr;

    QSpinBox* m_number = nullptr;
    QLineEdit* m_numberVariable = nullptr;
    QLabel* m_numberPreview = nullptr;
    QDateEdit* m_date = nullptr;
    QDateEdit* m_serviceStart = nullptr;
    QCheckBox* m_hasServiceEnd = nullptr;
    QDateEdit* m_serviceEnd = nullptr;
    QSpinBox* m_daysToPay = nullptr;
    QDoubleSpinBox* m_skontoPercent = nullptr;
    QSpinBox* m_skontoDays = nullptr;
    QLabel* m_dueDate = nullptr;

    ItemsModel* m_itemsModel = nullptr;
    QTableView* m_items = nullptr;
    QPushButton* m_addItem = nullptr;

    QComboBox* m_priceMode = nullptr;
    QComboBox* m_discountKind = nullptr;
    QDoubleSpinBox* m_discountValue = nullptr;
    QComboBox* m_exemption = nullptr;
    QGridLayout* m_totals = nullptr;

    QPlainTextEdit* m_note = nullptr;
    QToolButton* m_senderToggle = nullptr;
    QWidget* m_senderFields = nullptr;
    QLabel* m_senderSummary = nullptr;
};
