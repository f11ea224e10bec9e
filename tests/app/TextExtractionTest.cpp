#include "AppFixture.h"

#include "InvoiceListView.h"
#include "TextExtractionDialog.h"
#include "support/ModelTestServer.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTcpServer>
#include <QTest>
#include <QTreeWidget>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString mail = u"Guten Tag,\n\nbitte die Rechnung an:\nNordlicht Design UG\nAm Markt 3a\n24103 Kiel\n\n"
                     u"Bestellnummer: 4711\n"_s;

} // namespace

// "New Invoice from Text…": paste, watch the fields fill in, create the draft.
class TextExtractionTest : public AppFixture
{
protected:
    void useServer(const QString& origin)
    {
        m_settings->setValue(QLatin1StringView(TextParserSettings::serverUrlKey), origin);
    }

    TextExtractionDialog* openDialog()
    {
        trigger(u"newFromText"_s);
        auto* dialog = window().findChild<TextExtractionDialog*>();
        EXPECT_TRUE(dialog);
        return dialog;
    }

    template <class T>
    static T* part(TextExtractionDialog* dialog, const QString& name)
    {
        return dialog->findChild<T*>(name);
    }

    static QString shownFields(TextExtractionDialog* dialog)
    {
        QStringList lines;
        auto* fields = part<QTreeWidget>(dialog, u"extractedFields"_s);
        for (int i = 0; i < fields->topLevelItemCount(); ++i)
            lines.append(fields->topLevelItem(i)->text(0) + u": "_s + fields->topLevelItem(i)->text(1));
        return lines.join(u'\n');
    }

    static QString unusedAddress()
    {
        QTcpServer server;
        server.listen(QHostAddress::LocalHost, 0);
        return u"http://127.0.0.1:%1"_s.arg(server.serverPort());
    }
};

TEST_F(TextExtractionTest, WithoutAModelTheOfflineReadingFillsTheFieldsAsTheUserTypes)
{
    useServer(unusedAddress());
    openWindow();
    TextExtractionDialog* dialog = openDialog();
    ASSERT_TRUE(dialog);
    auto* state = part<QLabel>(dialog, u"modelState"_s);
    auto* modelButton = part<QPushButton>(dialog, u"extractWithModel"_s);
    auto* create = part<QPushButton>(dialog, u"createInvoice"_s);
    EXPECT_TRUE(waitFor([&] { return state->text().startsWith(u"No language model server answers"_s); }))
        << state->text().toStdString();
    EXPECT_FALSE(modelButton->isVisible());
    EXPECT_FALSE(create->isEnabled());

    auto* text = part<QPlainTextEdit>(dialog, u"extractionText"_s);
    text->setFocus();
    text->setPlainText(mail.chopped(5));
    text->moveCursor(QTextCursor::End);
    QTest::keyClicks(text, u"4711"_s); // the last characters typed
    EXPECT_TRUE(waitFor([&] { return shownFields(dialog).contains(u"Nordlicht Design UG"_s); }))
        << shownFields(dialog).toStdString();
    EXPECT_EQ(part<QLabel>(dialog, u"extractorName"_s)->text(), u"Drafted by the offline extractor."_s);
    ASSERT_TRUE(create->isEnabled());

    const int before = int(workspace().invoices().invoices().size());
    QTest::mouseClick(create, Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return int(workspace().invoices().invoices().size()) == before + 1; }));
    const auto current = window().editor()->invoice();
    ASSERT_TRUE(current);
    EXPECT_EQ(current->businessName, u"Nordlicht Design UG"_s);
    EXPECT_EQ(current->addressCity, u"Kiel"_s);
    EXPECT_EQ(current->reference, u"4711"_s);
}

TEST_F(TextExtractionTest, TheModelsAnswerGrowsInPlaceAndBecomesTheInvoice)
{
    ModelTestServer server(ModelTestServer::Kind::llamaServer);
    server.answer({R"({"recipient":{"businessName":"Nordlicht)", R"( Design UG","city":"Kiel"},"items":[)",
                   R"({"description":"Logo","quantity":2,"unit":"hour","unitPrice":1234.5}]})"});
    useServer(server.origin());
    openWindow();
    TextExtractionDialog* dialog = openDialog();
    ASSERT_TRUE(dialog);
    auto* modelButton = part<QPushButton>(dialog, u"extractWithModel"_s);
    EXPECT_TRUE(waitFor([&] { return modelButton->isVisible(); }));
    dialog->setText(mail);
    ASSERT_TRUE(waitFor([&] { return modelButton->isEnabled(); }));

    QStringList seen;
    QObject::connect(&dialog->parser(), &TextParser::partiallyGenerated, dialog,
                     [&](const PartiallyGeneratedExtractedInvoice& partial) {
                         if (partial.recipient && partial.recipient->value.businessName)
                             seen.append(*partial.recipient->value.businessName);
                     });
    QTest::mouseClick(modelButton, Qt::LeftButton);
    auto* create = part<QPushButton>(dialog, u"createInvoice"_s);
    ASSERT_TRUE(waitFor([&] { return create->isEnabled(); }));
    // The answer was shown while it came in, before it was complete.
    EXPECT_FALSE(seen.isEmpty());
    EXPECT_TRUE(shownFields(dialog).contains(u"2 Hours: Logo · 1,234.50"_s))
        << shownFields(dialog).toStdString();
    EXPECT_TRUE(part<QLabel>(dialog, u"extractorName"_s)->text().startsWith(u"Drafted by llama-server"_s));

    QTest::mouseClick(create, Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] {
        const auto current = window().editor()->invoice();
        return current && current->businessName == u"Nordlicht Design UG"_s;
    }));
    const std::optional<Invoice>& current = window().editor()->invoice();
    ASSERT_TRUE(current);
    ASSERT_EQ(current->items.size(), 1);
    EXPECT_EQ(current->items[0].unitPrice, 1234.5);
    EXPECT_EQ(current->items[0].unit, Unit::hour);
}

TEST_F(TextExtractionTest, AModelStillLoadingIsSaidAndNotOffered)
{
    ModelTestServer server(ModelTestServer::Kind::llamaServer);
    server.setLoading(true);
    useServer(server.origin());
    openWindow();
    TextExtractionDialog* dialog = openDialog();
    ASSERT_TRUE(dialog);
    auto* state = part<QLabel>(dialog, u"modelState"_s);
    EXPECT_TRUE(waitFor([&] {
        return state->text().startsWith(
            u"The language model server is still loading its model. Try again in a little while."_s);
    })) << state->text().toStdString();
    EXPECT_FALSE(part<QPushButton>(dialog, u"extractWithModel"_s)->isVisible());
    EXPECT_EQ(server.chatRequests(), 0);
}

TEST_F(TextExtractionTest, TextDroppedOnTheWindowOpensTheViewWithIt)
{
    useServer(unusedAddress());
    openWindow();
    QMimeData data;
    data.setText(mail);
    const QPoint centre = window().list()->mapTo(&window(), window().list()->rect().center());
    QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_EQ(window().list()->dropHint(), u"Drop Text here\nto Draft an Invoice from It");
    QDropEvent drop(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window(), &drop);
    ASSERT_TRUE(waitFor([&] { return window().findChild<TextExtractionDialog*>() != nullptr; }));
    auto* dialog = window().findChild<TextExtractionDialog*>();
    EXPECT_EQ(part<QPlainTextEdit>(dialog, u"extractionText"_s)->toPlainText(), mail);
    EXPECT_TRUE(shownFields(dialog).contains(u"Kiel"_s)) << shownFields(dialog).toStdString();
    // Nothing is created until the user says so.
    EXPECT_TRUE(workspace().invoices().invoices().isEmpty());
    dialog->reject();
    spin(50);
    EXPECT_TRUE(workspace().invoices().invoices().isEmpty());
}
