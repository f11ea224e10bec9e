#include "StylingDialog.h"

#include "AppText.h"
#include "PreviewWidget.h"
#include "WindowMemory.h"
#include "render/InvoiceDocument.h"
#include "render/StylingManager.h"
#include "render/WebFontManager.h"
#include "storage/InvoiceManager.h"
#include "tasks/Workspace.h"
#include "util/Clock.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QScrollArea>
#include <QScrollBar>
#include <QSplitter>
#include <QStandardItemModel>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

namespace {

const QRegularExpression hexColour(u"^[0-9A-Fa-f]{6}$"_s);

QCheckBox* checkBox(const QString& name, const QString& text, const QString& toolTip = {})
{
    auto* box = new QCheckBox(text);
    box->setObjectName(name);
    box->setToolTip(toolTip);
    return box;
}

QString roleText(AccentColorUsage usage)
{
    switch (usage) {
    case AccentColorUsage::important:
        return ui(u"Most Important Info");
    case AccentColorUsage::labels:
        return ui(u"Labels");
    case AccentColorUsage::logo:
        return ui(u"Logo");
    case AccentColorUsage::headline:
        return ui(u"Headline");
    }
    return {};
}

QString backgroundText(BackgroundPattern pattern)
{
    switch (pattern) {
    case BackgroundPattern::none:
        return ui(u"Plain");
    case BackgroundPattern::dots:
        return ui(u"Dots");
    case BackgroundPattern::frame:
        return ui(u"Frame");
    }
    return {};
}

QString lineText(LineStyle style)
{
    switch (style) {
    case LineStyle::single:
        return ui(u"Single");
    case LineStyle::doubleLine:
        return ui(u"Double");
    case LineStyle::dotted:
        return ui(u"Dotted");
    case LineStyle::dashed:
        return ui(u"Dashed");
    }
    return {};
}

bool isLocalFileDrop(const QMimeData* mime)
{
    return mime && mime->hasUrls() && mime->urls().size() == 1 && mime->urls().first().isLocalFile();
}

} // namespace

// ----------------------------------------------------------------------------------------------

FontPicker::FontPicker(const QString& accessibleName, QWidget* parent) : QWidget(parent)
{
    m_family = new QComboBox;
    m_family->setAccessibleName(accessibleName);
    m_family->setMaxVisibleItems(24);
    m_face = new QComboBox;
    m_face->setAccessibleName(accessibleName + u' ' + ui(u"Style"));
    m_warning = new QLabel;
    m_warning->setWordWrap(true);
    m_warning->setVisible(false);
    m_warning->setForegroundRole(QPalette::PlaceholderText);

    // Sections as the catalogue has them; the headings cannot be chosen.
    auto* model = new QStandardItemModel(m_family);
    auto section = [model](const QString& text) {
        auto* item = new QStandardItem(text);
        item->setFlags(Qt::NoItemFlags);
        QFont font = item->font();
        font.setBold(true);
        item->setFont(font);
        model->appendRow(item);
    };
    auto* prompt = new QStandardItem(ui(u"Select Font"));
    prompt->setFlags(Qt::NoItemFlags);
    model->appendRow(prompt);
    const auto& families = WebFontManager::shared().availableFamilies();
    for (const bool bundled : {true, false}) {
        section(bundled ? ui(u"Featured") : ui(u"On this Computer"));
        for (const auto& family : families) {
            if (family.isBundled != bundled)
                continue;
            auto* item = new QStandardItem(family.name);
            item->setData(family.name, Qt::UserRole);
            model->appendRow(item);
        }
    }
    m_family->setModel(model);

    connect(m_family, &QComboBox::activated, this, [this] {
        m_missingFamily.clear();
        fillFaces(family(), u"400"_s, std::nullopt);
        m_warning->setVisible(false);
        Q_EMIT changed();
    });
    connect(m_face, &QComboBox::activated, this, [this] { Q_EMIT changed(); });

    auto* row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(m_family, 3);
    row->addWidget(m_face, 2);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addLayout(row);
    layout->addWidget(m_warning);
}

void FontPicker::setFont(const QString& family, const QString& weight, const std::optional<QString>& face)
{
    const int index = m_family->findData(family, Qt::UserRole);
    if (index >= 0) {
        m_missingFamily.clear();
        m_family->setCurrentIndex(index);
        m_warning->setVisible(false);
    } else {
        // Kept as stored: documents name it and fall back, and the user sees why it looks off.
        m_missingFamily = family;
        m_missingWeight = weight;
        m_family->setCurrentIndex(0);
        m_warning->setText(u"⚠ "_s + ui(u"“%1” is not installed on this computer").arg(family));
        m_warning->setVisible(true);
    }
    fillFaces(family, weight, face);
}

QString FontPicker::family() const
{
    if (!m_missingFamily.isEmpty())
        return m_missingFamily;
    return m_family->currentData(Qt::UserRole).toString();
}

QString FontPicker::weight() const
{
    if (!m_missingFamily.isEmpty())
        return m_missingWeight;
    if (const auto cut = WebFontManager::shared().cut(m_face->currentData().toString()))
        return cut->cssWeight;
    return u"400"_s;
}

std::optional<QString> FontPicker::face() const
{
    const QString id = m_face->currentData().toString();
    if (id.isEmpty())
        return std::nullopt;
    return id;
}

void FontPicker::fillFaces(const QString& family, const QString& weight, const std::optional<QString>& face)
{
    m_face->clear();
    const WebFontManager& fonts = WebFontManager::shared();
    for (const FontCut& cut : fonts.cuts(family))
        m_face->addItem(cut.displayName, cut.faceID);
    m_face->setEnabled(m_face->count() > 1);
    if (const auto chosen = fonts.face(family, weight, face))
        m_face->setCurrentIndex(std::max(0, m_face->findData(chosen->faceID)));
}

// ----------------------------------------------------------------------------------------------

StylingDialog::StylingDialog(Workspace& workspace, std::optional<Invoice> sample, QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_sample(std::move(sample))
{
    setObjectName(u"stylingDialog"_s);
    setAcceptDrops(true);

    auto* controls = new QWidget;
    auto* column = new QVBoxLayout(controls);
    column->setSpacing(14);
    column->addWidget(pageSection());
    column->addWidget(fontSection());
    column->addWidget(colourSection());
    column->addWidget(logoSection());
    column->addWidget(cssSection());
    column->addStretch();
    auto* scroll = new QScrollArea;
    scroll->setWidget(controls);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setMinimumWidth(controls->sizeHint().width() + scroll->verticalScrollBar()->sizeHint().width());

    m_preview = new PreviewWidget;
    m_preview->setObjectName(u"stylingPreview"_s);
    auto* splitter = new QSplitter;
    splitter->setObjectName(u"stylingSplitter"_s);
    splitter->addWidget(scroll);
    splitter->addWidget(m_preview);
    splitter->setStretchFactor(1, 1);
    splitter->setChildrenCollapsible(false);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    QPushButton* reset = buttons->addButton(ui(u"Restore Defaults"), QDialogButtonBox::ResetRole);
    reset->setObjectName(u"restoreDefaults"_s);
    connect(reset, &QPushButton::clicked, this, &StylingDialog::resetToDefaults);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addWidget(buttons);
    resize(1180, 780);
    WindowMemory::attach(this, u"stylingDialog"_s);

    // The style sheet is saved when the typing pauses, not at every key.
    m_cssTimer.setSingleShot(true);
    m_cssTimer.setInterval(300);
    connect(&m_cssTimer, &QTimer::timeout, this, &StylingDialog::saveCss);

    load(m_workspace.activeStyling());
    // Another program (or the command line) changing the files shows here too; our own saves
    // come back identical and change nothing.
    connect(&m_workspace.styling(), &StylingManager::stylingChanged, this, [this] {
        const auto& current = m_workspace.styling().styling();
        if (current && !m_loading && *current != styling())
            load(*current);
    });
}

QWidget* StylingDialog::pageSection()
{
    auto* box = new QGroupBox(ui(u"Page"));
    auto* form = new QFormLayout(box);
    m_pageFormat = new QComboBox;
    m_pageFormat->setObjectName(u"pageFormat"_s);
    m_pageFormat->addItem(u"A4"_s, int(PageFormat::a4));
    m_pageFormat->addItem(ui(u"US Letter"), int(PageFormat::usLetter));
    form->addRow(ui(u"Page Format"), m_pageFormat);
    m_background = new QComboBox;
    m_background->setObjectName(u"backgroundPattern"_s);
    for (const BackgroundPattern pattern : allCases<BackgroundPattern>())
        m_background->addItem(backgroundText(pattern), int(pattern));
    form->addRow(ui(u"Background"), m_background);
    m_lineStyle = new QComboBox;
    m_lineStyle->setObjectName(u"lineStyle"_s);
    for (const LineStyle style : allCases<LineStyle>())
        m_lineStyle->addItem(lineText(style), int(style));
    form->addRow(ui(u"Table Lines"), m_lineStyle);

    m_pageHeadline = checkBox(u"pageHeadline"_s, ui(u"Large headline"));
    m_marginalColumn = checkBox(u"marginalColumn"_s, ui(u"Side column"),
                                ui(u"Sender, contact and bank details in a column beside the text"));
    m_addressLine = checkBox(u"addressLine"_s, ui(u"Sender line above the address"),
                             ui(u"The small line that shows through a window envelope"));
    m_emptyItemRows = checkBox(u"emptyItemRows"_s, ui(u"Fill the item table with empty rows"));
    m_tintRows = checkBox(u"tintRowBackground"_s, ui(u"Tinted table rows"));
    m_smallCaps = checkBox(u"smallCapsLabels"_s, ui(u"Labels in small capitals"));
    m_girocode = checkBox(u"girocode"_s, ui(u"GiroCode for bank transfers"),
                          ui(u"A QR code by the bank details from which banking apps fill in the transfer "
                             u"(invoices in euros)"));
    auto* shows = new QVBoxLayout;
    for (QCheckBox* check : {m_pageHeadline, m_marginalColumn, m_addressLine, m_emptyItemRows, m_tintRows,
                             m_smallCaps, m_girocode})
        shows->addWidget(check);
    form->addRow(ui(u"Show"), shows);

    for (QComboBox* combo : {m_pageFormat, m_background, m_lineStyle})
        connect(combo, &QComboBox::currentIndexChanged, this, &StylingDialog::changed);
    for (QCheckBox* check : {m_pageHeadline, m_marginalColumn, m_addressLine, m_emptyItemRows, m_tintRows,
                             m_smallCaps, m_girocode})
        connect(check, &QCheckBox::toggled, this, &StylingDialog::changed);
    return box;
}

QWidget* StylingDialog::fontSection()
{
    auto* box = new QGroupBox(ui(u"Fonts"));
    auto* form = new QFormLayout(box);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    auto add = [&](FontPicker*& picker, const QString& name, const QString& label) {
        picker = new FontPicker(label);
        picker->setObjectName(name);
        connect(picker, &FontPicker::changed, this, &StylingDialog::changed);
        form->addRow(label, picker);
    };
    add(m_headlineFont, u"headlineFont"_s, ui(u"Headline"));
    add(m_primaryFont, u"primaryFont"_s, ui(u"Text and Figures"));
    add(m_secondaryFont, u"secondaryFont"_s, ui(u"Secondary Text"));
    add(m_labelFont, u"labelFont"_s, ui(u"Labels"));
    return box;
}

QWidget* StylingDialog::colourSection()
{
    auto* box = new QGroupBox(ui(u"Colours"));
    auto* form = new QFormLayout(box);
    auto colour = [&](QLineEdit*& field, QToolButton*& swatch, const QString& name, const QString& label) {
        field = new QLineEdit;
        field->setObjectName(name);
        field->setAccessibleName(label);
        field->setValidator(new QRegularExpressionValidator(hexColour, field));
        field->setMaxLength(6);
        field->setFixedWidth(field->fontMetrics().horizontalAdvance(u"MMMMMMM"_s) + 16);
        swatch = new QToolButton;
        swatch->setObjectName(name + u"Swatch"_s);
        swatch->setToolTip(ui(u"Choose a Colour…"));
        swatch->setAccessibleName(ui(u"Choose a Colour…"));
        swatch->setFixedSize(32, field->sizeHint().height());
        connect(swatch, &QToolButton::clicked, this, [this, field] { pickColour(field); });
        connect(field, &QLineEdit::textEdited, this, [this, field] {
            if (field->hasAcceptableInput())
                changed();
        });
        auto* row = new QHBoxLayout;
        row->addWidget(swatch);
        row->addWidget(field);
        row->addStretch();
        form->addRow(label, row);
    };
    colour(m_primaryColor, m_primarySwatch, u"primaryColor"_s, ui(u"Primary Colour"));
    colour(m_accentColor, m_accentSwatch, u"accentColor"_s, ui(u"Accent Colour"));
    auto* usage = new QVBoxLayout;
    for (const AccentColorUsage role : allCases<AccentColorUsage>()) {
        QCheckBox* check = checkBox(u"accent-"_s + rawValue(role), roleText(role));
        check->setProperty("usage", int(role));
        connect(check, &QCheckBox::toggled, this, &StylingDialog::changed);
        m_accentUsage.append(check);
        usage->addWidget(check);
    }
    form->addRow(ui(u"Accent Colour for"), usage);
    return box;
}

QWidget* StylingDialog::logoSection()
{
    auto* box = new QGroupBox(ui(u"Logo"));
    auto* form = new QFormLayout(box);
    m_logo = new QLabel;
    m_logo->setObjectName(u"logoImage"_s);
    m_logo->setFixedSize(180, 72);
    m_logo->setAlignment(Qt::AlignCenter);
    m_logo->setFrameShape(QFrame::StyledPanel);
    m_logo->setAccessibleName(ui(u"Logo"));
    m_logoName = new QLabel;
    m_logoName->setForegroundRole(QPalette::PlaceholderText);
    auto* choose = new QPushButton(ui(u"Choose…"));
    choose->setObjectName(u"chooseLogo"_s);
    connect(choose, &QPushButton::clicked, this, [this] {
        const QString file = QFileDialog::getOpenFileName(
            this, ui(u"Choose a Logo"), QString(),
            ui(u"Images") + u" (*.svg *.png *.jpg *.jpeg *.webp *.SVG *.PNG *.JPG *.JPEG *.WEBP)"_s);
        if (!file.isEmpty())
            chooseLogo(file);
    });
    m_removeLogo = new QPushButton(ui(u"Remove"));
    m_removeLogo->setObjectName(u"removeLogo"_s);
    connect(m_removeLogo, &QPushButton::clicked, this, [this] {
        m_workspace.styling().removeLogo();
        updateLogo();
        updatePreview();
    });
    auto* buttons = new QVBoxLayout;
    buttons->addWidget(choose);
    buttons->addWidget(m_removeLogo);
    buttons->addStretch();
    auto* row = new QHBoxLayout;
    row->addWidget(m_logo);
    row->addLayout(buttons);
    row->addStretch();
    auto* logoColumn = new QVBoxLayout;
    logoColumn->addLayout(row);
    logoColumn->addWidget(m_logoName);
    m_logoMessage = new QLabel;
    m_logoMessage->setObjectName(u"logoMessage"_s);
    m_logoMessage->setWordWrap(true);
    m_logoMessage->setVisible(false);
    QPalette warning = m_logoMessage->palette();
    warning.setColor(QPalette::WindowText, QColor(0xB0, 0x3A, 0x2E));
    m_logoMessage->setPalette(warning);
    logoColumn->addWidget(m_logoMessage);
    form->addRow(ui(u"Image"), logoColumn);
    m_logoSize = new QDoubleSpinBox;
    m_logoSize->setObjectName(u"logoSize"_s);
    m_logoSize->setRange(0.2, 5.0);
    m_logoSize->setSingleStep(0.1);
    m_logoSize->setDecimals(1);
    m_logoSize->setSuffix(u" ×"_s);
    form->addRow(ui(u"Size"), m_logoSize);
    m_recolorLogo = checkBox(u"recolorLogo"_s, ui(u"Colour an SVG logo like the text"));
    form->addRow(QString(), m_recolorLogo);
    auto* hint = new QLabel(ui(u"Drop an SVG, PNG, JPEG or WebP file on this window to use it."));
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    form->addRow(QString(), hint);
    connect(m_logoSize, &QDoubleSpinBox::valueChanged, this, &StylingDialog::changed);
    connect(m_recolorLogo, &QCheckBox::toggled, this, &StylingDialog::changed);
    return box;
}

QWidget* StylingDialog::cssSection()
{
    auto* box = new QGroupBox(ui(u"Custom CSS"));
    auto* layout = new QVBoxLayout(box);
    m_css = new QPlainTextEdit;
    m_css->setObjectName(u"customCss"_s);
    m_css->setAccessibleName(ui(u"Custom CSS"));
    m_css->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_css->setPlaceholderText(u".headline { letter-spacing: 0.05em; }"_s);
    m_css->setTabChangesFocus(true);
    m_css->setMinimumHeight(110);
    connect(m_css, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_loading)
            m_cssTimer.start();
    });
    auto* hint =
        new QLabel(ui(u"Rules added after the document's own style sheet, for the finishing touches."));
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_css);
    layout->addWidget(hint);
    return box;
}

void StylingDialog::load(const Styling& styling)
{
    m_loading = true;
    m_styling = styling;
    // Follows a profile switch too, so the title says whose documents change.
    setWindowTitle(ui(u"Styling of “%1”").arg(m_workspace.activeProfile().displayName()));
    m_pageFormat->setCurrentIndex(m_pageFormat->findData(int(styling.pageFormat)));
    m_background->setCurrentIndex(m_background->findData(int(styling.backgroundPattern)));
    m_lineStyle->setCurrentIndex(m_lineStyle->findData(int(styling.lineStyle)));
    m_pageHeadline->setChecked(styling.pageHeadline);
    m_marginalColumn->setChecked(styling.marginalColumn);
    m_addressLine->setChecked(styling.addressLine);
    m_emptyItemRows->setChecked(styling.emptyItemRows);
    m_tintRows->setChecked(styling.tintRowBackground);
    m_smallCaps->setChecked(styling.smallCapsLabels);
    m_girocode->setChecked(styling.girocode);
    m_headlineFont->setFont(styling.headlineFont, styling.headlineFontWeight, styling.headlineFontFace);
    m_primaryFont->setFont(styling.primaryFont, styling.primaryFontWeight, styling.primaryFontFace);
    m_secondaryFont->setFont(styling.secondaryFont, styling.secondaryFontWeight, styling.secondaryFontFace);
    m_labelFont->setFont(styling.labelFont, styling.labelFontWeight, styling.labelFontFace);
    m_primaryColor->setText(styling.primaryColor.toUpper());
    m_accentColor->setText(styling.accentColor.toUpper());
    for (QCheckBox* check : std::as_const(m_accentUsage))
        check->setChecked(styling.uses(AccentColorUsage(check->property("usage").toInt())));
    m_logoSize->setValue(styling.logoSize);
    m_recolorLogo->setChecked(styling.recolorLogo);
    if (m_css->toPlainText() != styling.css.value_or(QString()))
        m_css->setPlainText(styling.css.value_or(QString()));
    m_loading = false;
    updateColourButtons();
    updateLogo();
    updatePreview();
}

Styling StylingDialog::styling() const
{
    Styling s = m_styling;
    s.pageFormat = PageFormat(m_pageFormat->currentData().toInt());
    s.backgroundPattern = BackgroundPattern(m_background->currentData().toInt());
    s.lineStyle = LineStyle(m_lineStyle->currentData().toInt());
    s.pageHeadline = m_pageHeadline->isChecked();
    s.marginalColumn = m_marginalColumn->isChecked();
    s.addressLine = m_addressLine->isChecked();
    s.emptyItemRows = m_emptyItemRows->isChecked();
    s.tintRowBackground = m_tintRows->isChecked();
    s.smallCapsLabels = m_smallCaps->isChecked();
    s.girocode = m_girocode->isChecked();
    auto font = [](const FontPicker* picker, QString& family, QString& weight, std::optional<QString>& face) {
        family = picker->family();
        weight = picker->weight();
        face = picker->face();
    };
    font(m_headlineFont, s.headlineFont, s.headlineFontWeight, s.headlineFontFace);
    font(m_primaryFont, s.primaryFont, s.primaryFontWeight, s.primaryFontFace);
    font(m_secondaryFont, s.secondaryFont, s.secondaryFontWeight, s.secondaryFontFace);
    font(m_labelFont, s.labelFont, s.labelFontWeight, s.labelFontFace);
    if (m_primaryColor->hasAcceptableInput())
        s.primaryColor = m_primaryColor->text().toUpper();
    if (m_accentColor->hasAcceptableInput())
        s.accentColor = m_accentColor->text().toUpper();
    s.accentColorUsage.clear();
    for (const QCheckBox* check : m_accentUsage)
        if (check->isChecked())
            s.accentColorUsage.append(AccentColorUsage(check->property("usage").toInt()));
    s.logoSize = m_logoSize->value();
    s.recolorLogo = m_recolorLogo->isChecked();
    if (const auto& current = m_workspace.styling().styling()) {
        s.logo = current->logo;
        s.css = current->css;
    }
    return s;
}

void StylingDialog::changed()
{
    if (m_loading)
        return;
    m_loading = true; // the save announces itself; this editor already shows it
    m_styling = styling();
    m_workspace.styling().setStyling(m_styling);
    m_loading = false;
    updateColourButtons();
    updatePreview();
}

void StylingDialog::saveCss()
{
    m_loading = true;
    m_workspace.styling().setCss(m_css->toPlainText());
    m_loading = false;
    updatePreview();
}

void StylingDialog::pickColour(QLineEdit* field)
{
    const QColor initial(u'#' + field->text());
    const QColor chosen =
        QColorDialog::getColor(initial.isValid() ? initial : Qt::black, this,
                               field == m_primaryColor ? ui(u"Primary Colour") : ui(u"Accent Colour"));
    if (!chosen.isValid())
        return;
    field->setText(chosen.name().mid(1).toUpper());
    changed();
}

void StylingDialog::updateColourButtons()
{
    auto paint = [](QToolButton* swatch, const QString& hex) {
        QPixmap pixmap(swatch->size() - QSize(10, 10));
        pixmap.fill(QColor(u'#' + hex));
        swatch->setIcon(pixmap);
        swatch->setIconSize(pixmap.size());
    };
    paint(m_primarySwatch, styling().primaryColor);
    paint(m_accentSwatch, styling().accentColor);
}

void StylingDialog::updateLogo()
{
    const auto& current = m_workspace.styling().styling();
    const QString file = current ? current->logo.value_or(QString()) : QString();
    m_removeLogo->setEnabled(!file.isEmpty());
    m_logoName->setText(file.isEmpty() ? ui(u"No logo") : QFileInfo(file).fileName());
    QImageReader reader;
    if (!file.isEmpty())
        reader.setFileName(file);
    QSize size = reader.size();
    if (file.isEmpty() || !size.isValid()) {
        m_logo->setPixmap({});
        m_logo->setText(file.isEmpty() ? ui(u"Drop a logo here") : QString());
        return;
    }
    size.scale(m_logo->size() - QSize(12, 12), Qt::KeepAspectRatio);
    reader.setScaledSize(size);
    m_logo->setPixmap(QPixmap::fromImage(reader.read()));
}

bool StylingDialog::chooseLogo(const QString& file)
{
    if (const auto error = m_workspace.styling().replaceLogo(file)) {
        QString text = error->description;
        if (error->code == 2)
            text =
                ui(u"Invalid file type. Only SVG, PNG, JPG, JPEG, and WebP files are supported for logos.");
        else if (error->code == 3)
            text = ui(u"“%1” is not a readable image.").arg(QFileInfo(file).fileName());
        m_logoMessage->setText(text);
        m_logoMessage->setVisible(true);
        return false;
    }
    m_logoMessage->setVisible(false);
    updateLogo();
    updatePreview();
    return true;
}

void StylingDialog::dragEnterEvent(QDragEnterEvent* event)
{
    if (isLocalFileDrop(event->mimeData()))
        event->acceptProposedAction();
}

void StylingDialog::dropEvent(QDropEvent* event)
{
    if (!isLocalFileDrop(event->mimeData()))
        return;
    event->acceptProposedAction();
    chooseLogo(event->mimeData()->urls().first().toLocalFile());
}

void StylingDialog::updatePreview()
{
    const Invoice invoice = m_sample ? *m_sample : exampleInvoice();
    Styling shown = styling();
    m_preview->setDocument(std::make_shared<InvoiceDocument>(invoice, m_workspace.activeProfile(), shown,
                                                             m_workspace.related(invoice)));
}

void StylingDialog::resetToDefaults()
{
    Styling defaults = Styling::makeNew(m_workspace.activeProfile().addressCountry);
    defaults.id = m_styling.id;
    if (const auto& current = m_workspace.styling().styling()) {
        defaults.logo = current->logo;
        defaults.css = current->css;
    }
    if (const WebFontManager& fonts = WebFontManager::shared(); fonts.isLoaded()) {
        auto resolve = [&](const QString& family, const QString& weight, std::optional<QString>& face) {
            if (const auto cut = fonts.face(family, weight))
                face = cut->faceID;
        };
        resolve(defaults.headlineFont, defaults.headlineFontWeight, defaults.headlineFontFace);
        resolve(defaults.primaryFont, defaults.primaryFontWeight, defaults.primaryFontFace);
        resolve(defaults.secondaryFont, defaults.secondaryFontWeight, defaults.secondaryFontFace);
        resolve(defaults.labelFont, defaults.labelFontWeight, defaults.labelFontFace);
    }
    load(defaults);
    changed();
}

Invoice StylingDialog::exampleInvoice() const
{
    // Something to look at before the first invoice exists; it is never saved.
    Invoice invoice = m_workspace.invoices().newFromProfile(InvoiceType::invoice);
    invoice.number = 1;
    invoice.name = ui(u"Example Customer");
    invoice.businessName = ui(u"Example Company Ltd.");
    invoice.addressLineOne = ui(u"1 Example Street");
    invoice.addressPostcode = u"10115"_s;
    invoice.addressCity = ui(u"Berlin");
    invoice.date = Clock::nowTimestamp();
    const double vat = m_workspace.activeProfile().vatPercentage;
    for (const auto& [text, quantity, price] :
         {std::tuple{ui(u"Concept and design"), 12.0, 95.0}, std::tuple{ui(u"Implementation"), 20.0, 85.0},
          std::tuple{ui(u"Travel expenses"), 1.0, 64.5}}) {
        InvoiceItem item = InvoiceItem::makeNew();
        item.item = text;
        item.quantity = quantity;
        item.unit = quantity > 1 ? Unit::hour : Unit::lumpSum;
        item.unitPrice = price;
        item.vatPercentage = vat;
        invoice.items.append(item);
    }
    return invoice;
}
