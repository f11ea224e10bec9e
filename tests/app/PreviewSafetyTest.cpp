#include "AppFixture.h"

#include "PreviewWidget.h"
#include "render/InvoiceDocument.h"
#include "storage/InvoiceManager.h"

#include <QApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QMessageBox>
#include <QToolTip>
#include <QWebEnginePage>
#include <QWebEngineScript>
#include <QWebEngineView>

using namespace Qt::Literals::StringLiterals;

class PreviewSafetyTest : public AppFixture
{};

// The preview shows what a stranger's file brought in as text, and neither its pages nor the
// shell around them run any script of theirs.
TEST_F(PreviewSafetyTest, HostileTextAndStyleInThePreviewRunNothing)
{
    openWindow();
    const QString tag =
        u"<img data-injected src=x onerror=\"document.title='ran';top.document.title='ran'\">"_s;
    Invoice invoice = workspace().invoices().createInvoice();
    invoice.name = tag;
    invoice.note = tag;
    invoice.currency = Currency{tag};
    Styling styling = workspace().activeStyling();
    styling.css = u"</style><script data-injected>document.title='ran'</script><style>"_s;

    PreviewWidget preview;
    preview.resize(700, 900);
    preview.show();
    preview.setDocument(std::make_shared<InvoiceDocument>(invoice, workspace().activeProfile(), styling));
    ASSERT_TRUE(waitFor([&] { return preview.renderedCount() > 0; }, 20000));
    spin(500);

    QWebEngineView* view = preview.findChild<QWebEngineView*>();
    ASSERT_TRUE(view);
    QJsonObject seen;
    view->page()->runJavaScript(uR"JS((function() {
        var frames = Array.from(document.querySelectorAll('iframe'));
        var result = {frames: frames.length, injected: 0, ran: document.title === 'ran', sandboxed: true, shown: false};
        frames.forEach(function(frame) {
            if (frame.getAttribute('sandbox') !== 'allow-same-origin') result.sandboxed = false;
            var page = frame.contentDocument;
            if (!page || !page.body) return;
            result.injected += page.querySelectorAll('[data-injected]').length;
            result.ran = result.ran || page.title === 'ran';
            result.shown = result.shown || page.body.innerText.indexOf('<img data-injected') >= 0;
        });
        return JSON.stringify(result);
    })())JS"_s,
                                QWebEngineScript::ApplicationWorld, [&](const QVariant& value) {
                                    seen = QJsonDocument::fromJson(value.toString().toUtf8()).object();
                                });
    ASSERT_TRUE(waitFor([&] { return !seen.isEmpty(); }, 10000));
    EXPECT_GE(seen[u"frames"_s].toInt(), 1);
    EXPECT_TRUE(seen[u"sandboxed"_s].toBool());
    EXPECT_EQ(seen[u"injected"_s].toInt(), 0);
    EXPECT_FALSE(seen[u"ran"_s].toBool());
    EXPECT_TRUE(seen[u"shown"_s].toBool()) << "the tag shows as text";
}

// Text that only looks like HTML stays text wherever the window shows it: in labels, message
// boxes and tooltips (a customer's name from a received e-invoice, a file name, a model's name).
// Labels that ask for rich text, such as the status bar's link, keep it.
TEST_F(PreviewSafetyTest, LabelsMessageBoxesAndTooltipsShowMarkupAsText)
{
    const QString hostile =
        u"Becker <img src=\"/etc/ledra-probe.png\" width=900><a href=\"file:///\">pay here</a>"_s;

    QLabel label(hostile);
    label.show();
    EXPECT_EQ(label.textFormat(), Qt::PlainText);

    QLabel rich;
    rich.setTextFormat(Qt::RichText);
    rich.setText(u"<b>bold</b>"_s);
    rich.show();
    EXPECT_EQ(rich.textFormat(), Qt::RichText);

    QMessageBox box(QMessageBox::Warning, u"Import"_s, hostile, QMessageBox::Ok);
    box.show();
    QApplication::processEvents();
    int shownAsText = 0;
    for (const QLabel* inBox : box.findChildren<QLabel*>())
        if (inBox->text() == hostile && inBox->textFormat() == Qt::PlainText)
            ++shownAsText;
    EXPECT_EQ(shownAsText, 1);
    box.close();

    QToolTip::showText(QPoint(100, 100), hostile);
    QApplication::processEvents();
    const QList<QLabel*> tips = [] {
        QList<QLabel*> found;
        for (QWidget* widget : QApplication::topLevelWidgets())
            if (widget->inherits("QTipLabel") && widget->isVisible())
                found << static_cast<QLabel*>(widget);
        return found;
    }();
    ASSERT_EQ(tips.size(), 1);
    EXPECT_EQ(tips.first()->text(), hostile);
    EXPECT_EQ(tips.first()->textFormat(), Qt::PlainText);
    QToolTip::hideText();
}
