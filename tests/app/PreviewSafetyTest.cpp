#include "AppFixture.h"

#include "PreviewWidget.h"
#include "render/InvoiceDocument.h"
#include "storage/InvoiceManager.h"

#include <QJsonDocument>
#include <QJsonObject>
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
