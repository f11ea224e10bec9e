#include "AppFixture.h"

#include "InvoiceListView.h"
#include "search/SearchIndex.h"
#include "support/TestSupport.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileInfo>
#include <QLineEdit>
#include <QMimeData>
#include <QTest>

using namespace Qt::Literals::StringLiterals;

class SearchAndContactsTest : public AppFixture
{
protected:
    int shownRows() { return window().list()->model()->rowCount(); }
};

TEST_F(SearchAndContactsTest, TheSearchFieldAlsoFindsAddressesAndNotesThroughTheIndex)
{
    openWindow([](Workspace& workspace) {
        Invoice invoice = workspace.invoices().createInvoice();
        invoice.businessName = u"Becker & Söhne GmbH"_s;
        invoice.addressLineOne = u"Hafenstraße 12"_s;
        invoice.note = u"Lieferung an das Lager Veddel"_s;
        ASSERT_FALSE(workspace.invoices().saveInvoice(invoice));
        Invoice other = workspace.invoices().createInvoice();
        other.businessName = u"Nordlicht Media"_s;
        ASSERT_FALSE(workspace.invoices().saveInvoice(other));
    });
    ASSERT_EQ(shownRows(), 2);
    // Only the index knows the street and the note; the umlaut is typed as "ae".
    QTest::keyClicks(window().searchField(), u"veddel"_s);
    EXPECT_TRUE(waitFor([&] { return shownRows() == 1; }));
    window().searchField()->clear();
    QTest::keyClicks(window().searchField(), u"hafenstrasse"_s);
    EXPECT_TRUE(waitFor([&] { return shownRows() == 1; }));
    window().searchField()->clear();
    QTest::keyClicks(window().searchField(), u"nowhere"_s);
    spin(300);
    EXPECT_EQ(shownRows(), 0);
    window().searchField()->clear();
    EXPECT_EQ(shownRows(), 2);
    // The window keeps the one index that `ledra` and the desktop's search read too.
    EXPECT_TRUE(QFileInfo::exists(SearchIndex::defaultPath())) << SearchIndex::defaultPath().toStdString();
}

TEST_F(SearchAndContactsTest, ADroppedContactCardBecomesAnOpenInvoice)
{
    openWindow();
    const int before = int(workspace().invoices().invoices().size());
    QMimeData data;
    data.setData(u"text/vcard"_s, TestSupport::readData(u"vcard/two-contacts.vcf"_s));
    const QPoint centre = window().list()->mapTo(&window(), window().list()->rect().center());

    QDragEnterEvent enter(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    EXPECT_EQ(window().list()->dropHint(), u"Drop Contact here\nto Create new Invoice");

    QDropEvent drop(centre, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window(), &drop);
    EXPECT_TRUE(window().list()->dropHint().isEmpty());
    // One invoice per contact; the last one is open, its recipient filled in.
    ASSERT_TRUE(waitFor([&] { return workspace().invoices().invoices().size() == before + 2; }));
    ASSERT_TRUE(waitFor([&] { return window().editor()->invoice().has_value(); }));
    const Invoice& open = *window().editor()->invoice();
    EXPECT_EQ(open.name, u"Alois Huber");
    EXPECT_EQ(open.addressCity, u"Salzburg");
    bool business = false;
    for (const Invoice& invoice : workspace().invoices().invoices())
        business |= invoice.businessName == u"Lindqvist Design GmbH" && invoice.name == u"Jana Becker";
    EXPECT_TRUE(business);

    // Something that is no card: said in the window, nothing created.
    QMimeData broken;
    broken.setData(u"text/vcard"_s, "hello");
    QDropEvent dropBroken(centre, Qt::CopyAction, &broken, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(&window(), &dropBroken);
    spin(100);
    EXPECT_EQ(workspace().invoices().invoices().size(), before + 2);
}

TEST_F(SearchAndContactsTest, ASearchResultOpensInItsProfile)
{
    Invoice wanted;
    QUuid studio;
    openWindow([&](Workspace& workspace) {
        Profile other = Profile::makeNew(Country{u"DE"_s});
        ASSERT_FALSE(workspace.profiles().createProfile(u"Studio"_s, &other));
        studio = other.id;
        const QUuid first = workspace.activeProfile().id;
        workspace.profiles().setActiveProfile(studio);
        wanted = workspace.invoices().createInvoice();
        wanted.businessName = u"Seeblick Hotel"_s;
        ASSERT_FALSE(workspace.invoices().saveInvoice(wanted));
        workspace.profiles().setActiveProfile(first);
    });
    ASSERT_NE(workspace().activeProfile().id, studio);
    EXPECT_FALSE(window().showSearchResult(u"not-an-identifier"_s));
    EXPECT_FALSE(window().showSearchResult(QUuid::createUuid().toString() + u'/' + wanted.id.toString()));
    EXPECT_NE(workspace().activeProfile().id, studio);

    ASSERT_TRUE(window().showSearchResult(SpotlightItem::uniqueIdentifierOf(studio, wanted.id)));
    EXPECT_EQ(workspace().activeProfile().id, studio);
    ASSERT_TRUE(window().editor()->invoice().has_value());
    EXPECT_EQ(window().editor()->invoice()->businessName, u"Seeblick Hotel");
}
