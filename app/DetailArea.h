#pragma once

#include <QWidget>

class PreviewWidget;
class QSplitter;
class QTabBar;

// The open invoice's form and its preview. Side by side when there is room for the form and a
// page that can be read; otherwise the two share the place as tabs, so that the page never
// shrinks to a thumbnail. The user may hide the preview altogether.
class DetailArea : public QWidget
{
    Q_OBJECT
public:
    enum Tab
    {
        formTab,
        previewTab
    };

    DetailArea(QWidget* form, PreviewWidget* preview, QWidget* parent = nullptr);

    // The splitter between form and preview, whose sizes the window remembers.
    QSplitter* splitter() const { return m_splitter; }
    QTabBar* tabs() const { return m_tabs; }

    bool isPreviewShown() const { return m_previewShown; }
    void setPreviewShown(bool shown);
    // True while form and preview are tabs (the area is too narrow for both).
    bool isTabbed() const { return m_tabbed; }
    // The tab in front; in the side-by-side arrangement both are visible.
    void showTab(Tab tab);

    // Arranges form and preview for a width the area is about to get, so that the splitter it
    // sits in can give it that width (side by side, its minimum is that of form and preview).
    void arrangeFor(int width);

    // The narrowest form that still lays out its fields, and the narrowest preview that shows
    // an A4 page at a zoom one can read (55 %). Below their sum the area turns to tabs.
    int minimumFormWidth() const;
    static int readablePreviewWidth();
    // The width below which the area turns to tabs.
    int sideBySideWidth() const;
    // The preview's part of `total` side by side: half, and never less than it needs to be read.
    static int previewShare(int total);

protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void arrange();

    QWidget* m_form;
    PreviewWidget* m_preview;
    QSplitter* m_splitter;
    QTabBar* m_tabs;
    bool m_previewShown = true;
    bool m_tabbed = false;
};
