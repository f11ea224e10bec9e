#pragma once

#include "model/Invoice.h"
#include "render/Styling.h"

#include <QDialog>
#include <QTimer>

#include <optional>

class FontPicker;
class PreviewWidget;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;
class Workspace;

// Profile › Styling…: the look of every document of the active profile, beside a preview of
// an invoice in that look. Every change is saved at once, as the document views expect; the
// preview follows within a fraction of a second.
class StylingDialog : public QDialog
{
    Q_OBJECT
public:
    // `sample` is the invoice to show; without one an example invoice is made up.
    StylingDialog(Workspace& workspace, std::optional<Invoice> sample, QWidget* parent = nullptr);

    // The styling as the controls describe it now.
    Styling styling() const;
    PreviewWidget* preview() const { return m_preview; }

    // Makes the file the logo; shows why when it cannot be (wrong type, not an image).
    bool chooseLogo(const QString& file);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    QWidget* pageSection();
    QWidget* fontSection();
    QWidget* colourSection();
    QWidget* logoSection();
    QWidget* cssSection();
    void load(const Styling& styling);
    void changed();
    void saveCss();
    void pickColour(QLineEdit* field);
    void updateColourButtons();
    void updateLogo();
    void updatePreview();
    void resetToDefaults();
    Invoice exampleInvoice() const;

    Workspace& m_workspace;
    std::optional<Invoice> m_sample;
    Styling m_styling;
    bool m_loading = false;

    QComboBox* m_pageFormat = nullptr;
    QCheckBox* m_marginalColumn = nullptr;
    QCheckBox* m_pageHeadline = nullptr;
    QCheckBox* m_addressLine = nullptr;
    QCheckBox* m_emptyItemRows = nullptr;
    QCheckBox* m_tintRows = nullptr;
    QCheckBox* m_smallCaps = nullptr;
    QCheckBox* m_girocode = nullptr;
    QComboBox* m_background = nullptr;
    QComboBox* m_lineStyle = nullptr;
    FontPicker* m_headlineFont = nullptr;
    FontPicker* m_primaryFont = nullptr;
    FontPicker* m_secondaryFont = nullptr;
    FontPicker* m_labelFont = nullptr;
    QLineEdit* m_primaryColor = nullptr;
    QLineEdit* m_accentColor = nullptr;
    QToolButton* m_primarySwatch = nullptr;
    QToolButton* m_accentSwatch = nullptr;
    QList<QCheckBox*> m_accentUsage;
    QLabel* m_logo = nullptr;
    QLabel* m_logoName = nullptr;
    QPushButton* m_removeLogo = nullptr;
    QDoubleSpinBox* m_logoSize = nullptr;
    QCheckBox* m_recolorLogo = nullptr;
    QLabel* m_logoMessage = nullptr;
    QPlainTextEdit* m_css = nullptr;
    QTimer m_cssTimer;
    PreviewWidget* m_preview = nullptr;
};

// A font role's family and face, from the catalogue: the shipped families first, then those
// installed on this computer; a stored family that is neither stays, with a warning.
class FontPicker : public QWidget
{
    Q_OBJECT
public:
    explicit FontPicker(const QString& accessibleName, QWidget* parent = nullptr);

    void setFont(const QString& family, const QString& weight, const std::optional<QString>& face);
    QString family() const;
    QString weight() const;
    std::optional<QString> face() const;

Q_SIGNALS:
    void changed();

private:
    void fillFaces(const QString& family, const QString& weight, const std::optional<QString>& face);

    QComboBox* m_family = nullptr;
    QComboBox* m_face = nullptr;
    QLabel* m_warning = nullptr;
    QString m_missingFamily;
    QString m_missingWeight;
};
