#pragma once

#include "extraction/TextParser.h"

#include <QDialog>

class QLabel;
class QPlainTextEdit;
class QPushButton;
class QSettings;
class QTimer;
class QTreeWidget;

// "New Invoice from Text…": the user pastes an e-mail, a note or an address block and watches
// the fields fill in. The offline extractor reads the text as it is typed; the local language
// model, when one runs, reads it on request and its answer grows in place. Creating the invoice
// is left to the caller (the task layer), which gets result() after accept().
class TextExtractionDialog : public QDialog
{
    Q_OBJECT
public:
    TextExtractionDialog(QSettings& settings, QWidget* parent = nullptr);

    void setText(const QString& text);
    const ExtractedInvoice& result() const { return m_result; }
    ExtractorKind extractorKind() const { return m_kind; }
    // Who drafted the result, for "Drafted by …".
    QString extractorName() const;
    TextParser& parser() { return *m_parser; }

    // Starts the model's reading of the text (the button's action).
    void extractWithModel();

private:
    void checkAvailability();
    void extractOffline();
    void display(const ExtractedInvoice& result, ExtractorKind kind);
    void setBusy(bool busy);

    TextParser* m_parser;
    QPlainTextEdit* m_text;
    QTreeWidget* m_fields;
    QLabel* m_model;
    QLabel* m_source;
    QPushButton* m_modelButton;
    QPushButton* m_cancelButton;
    QPushButton* m_create;
    QTimer* m_typing;
    ExtractedInvoice m_result;
    ExtractorKind m_kind = ExtractorKind::offline;
    bool m_modelAvailable = false;
    bool m_modelRunning = false;
};
