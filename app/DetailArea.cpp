#include "DetailArea.h"

#include "AppText.h"
#include "PreviewWidget.h"

#include <QEvent>
#include <QSplitter>
#include <QTabBar>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace {

// An A4 page in CSS pixels (21 cm at 96 pixels per inch) and what the preview puts around it.
constexpr double pageWidth = 21.0 * 96 / 2.54;
constexpr int pageMargin = 40;
constexpr double readableZoom = 0.55;

} // namespace

DetailArea::DetailArea(QWidget* form, PreviewWidget* preview, QWidget* parent)
    : QWidget(parent), m_form(form), m_preview(preview)
{
    setObjectName(u"detailArea"_s);
    m_tabs = new QTabBar(this);
    m_tabs->setObjectName(u"detailTabs"_s);
    m_tabs->setDocumentMode(true);
    m_tabs->setExpanding(false);
    m_tabs->addTab(ui(u"Invoice"));
    m_tabs->addTab(ui(u"Preview"));
    m_tabs->hide();
    connect(m_tabs, &QTabBar::currentChanged, this, [this] { arrange(); });

    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->setObjectName(u"detailSplitter"_s);
    m_splitter->addWidget(form);
    m_splitter->addWidget(preview);
    m_splitter->setStretchFactor(0, 3);
    m_splitter->setStretchFactor(1, 2);
    m_splitter->setCollapsible(0, false);
    m_splitter->setCollapsible(1, false);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_tabs);
    layout->addWidget(m_splitter, 1);
}

int DetailArea::minimumFormWidth() const
{
    return std::max(m_form->minimumSizeHint().width(), 360);
}

int DetailArea::readablePreviewWidth()
{
    return int(pageWidth * readableZoom) + pageMargin;
}

int DetailArea::sideBySideWidth() const
{
    return minimumFormWidth() + readablePreviewWidth() + m_splitter->handleWidth();
}

int DetailArea::previewShare(int total)
{
    return std::max(readablePreviewWidth(), total / 2);
}

void DetailArea::setPreviewShown(bool shown)
{
    if (shown == m_previewShown)
        return;
    m_previewShown = shown;
    if (shown && m_tabbed)
        m_tabs->setCurrentIndex(previewTab);
    arrange();
}

void DetailArea::showTab(Tab tab)
{
    m_tabs->setCurrentIndex(tab);
    arrange();
}

void DetailArea::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    arrange();
}

void DetailArea::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::LanguageChange) {
        m_tabs->setTabText(formTab, ui(u"Invoice"));
        m_tabs->setTabText(previewTab, ui(u"Preview"));
    }
}

void DetailArea::arrange()
{
    arrangeFor(width());
}

void DetailArea::arrangeFor(int width)
{
    const bool tabbed = width < sideBySideWidth();
    const bool wasTabbed = m_tabbed;
    m_tabbed = tabbed;
    m_tabs->setVisible(tabbed && m_previewShown);
    if (!m_previewShown) {
        m_form->show();
        m_preview->hide();
    } else if (tabbed) {
        const bool preview = m_tabs->currentIndex() == previewTab;
        m_form->setVisible(!preview);
        m_preview->setVisible(preview);
    } else {
        // Coming back from tabs or from hidden, or squeezed by a restored split: the page gets
        // what it needs to be read, the form the rest.
        const bool resplit =
            wasTabbed || m_preview->isHidden() || m_splitter->sizes().value(1) < readablePreviewWidth() / 2;
        m_form->show();
        m_preview->show();
        if (resplit) {
            const int total = width - m_splitter->handleWidth();
            const int previewWidth = previewShare(total);
            m_splitter->setSizes({total - previewWidth, previewWidth});
        }
    }
    // The minimum width the window's splitter sees follows at once, not at the next layout pass.
    layout()->invalidate();
    layout()->activate();
}
