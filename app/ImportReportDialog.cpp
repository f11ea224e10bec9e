#include "ImportReportDialog.h"

#include "AppText.h"
#include "numbering/NumberFormat.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QTreeWidget>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

ImportReportDialog::ImportReportDialog(const Profile& profile, const QList<ImportResult>& results,
                                       QWidget* parent)
    : QDialog(parent)
{
    setObjectName(u"importReport"_s);
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(ui(u"Import Report"));
    auto* layout = new QVBoxLayout(this);
    int added = 0;
    for (const ImportResult& result : results)
        added += result.invoice ? 1 : 0;
    layout->addWidget(new QLabel(ui(u"%1 of %2 files imported.").arg(added).arg(results.size())));

    auto* list = new QTreeWidget;
    list->setObjectName(u"importResults"_s);
    list->setColumnCount(2);
    list->setHeaderLabels({ui(u"File"), ui(u"Result")});
    list->setRootIsDecorated(true);
    list->setWordWrap(true);
    list->setUniformRowHeights(false);
    for (const ImportResult& result : results) {
        auto* item = new QTreeWidgetItem(list);
        item->setText(0, QFileInfo(result.file).fileName());
        item->setToolTip(0, result.file);
        if (result.invoice) {
            item->setText(1,
                          ui(u"Imported as %1").arg(NumberFormat::displayNumber(*result.invoice, profile)));
        } else {
            item->setText(1, result.problem);
            item->setForeground(1, QColor(0xC0, 0x39, 0x2B));
        }
        item->setToolTip(1, item->text(1));
        for (const QString& note : result.notes) {
            auto* child = new QTreeWidgetItem(item);
            child->setText(1, note);
            child->setToolTip(1, note);
            child->setForeground(1, QColor(0xB0, 0x6A, 0x00));
        }
        item->setExpanded(true);
    }
    list->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    list->header()->setStretchLastSection(true);
    layout->addWidget(list);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(640, 320);
}
