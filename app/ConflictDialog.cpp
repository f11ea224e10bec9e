#include "ConflictDialog.h"

#include "AppText.h"
#include "tasks/TaskError.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

ConflictDialog::ConflictDialog(Workspace& workspace, SyncTasks::Conflict conflict, QWidget* parent)
    : QDialog(parent), m_workspace(workspace), m_conflict(std::move(conflict))
{
    setObjectName(u"conflictDialog"_s);
    setWindowTitle(ui(u"Compare Versions"));
    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(
        ui(u"%1 was changed on another machine at the same time. The other version was "
           u"saved on %2. Fields that differ are highlighted.")
            .arg(m_conflict.subject, QLocale().toString(m_conflict.otherModified, QLocale::ShortFormat)));
    intro->setWordWrap(true);
    layout->addWidget(intro);

    m_table = new QTableWidget(0, 3, this);
    m_table->setObjectName(u"comparison"_s);
    m_table->setHorizontalHeaderLabels({ui(u"Field"), ui(u"This Version"), ui(u"Other Version")});
    m_table->verticalHeader()->hide();
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setWordWrap(true);
    m_table->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(1, QHeaderView::Stretch);
    m_table->horizontalHeader()->setSectionResizeMode(2, QHeaderView::Stretch);
    QList<SyncTasks::FieldRow> rows;
    try {
        rows = SyncTasks::compare(m_workspace, m_conflict);
    } catch (const TaskError& error) {
        intro->setText(error.message());
    }
    // Differing fields first: in a long record they are what the user came to see.
    std::stable_sort(
        rows.begin(), rows.end(),
        [](const SyncTasks::FieldRow& a, const SyncTasks::FieldRow& b) { return a.differs > b.differs; });
    QColor highlight(0xD9, 0x8C, 0x00);
    highlight.setAlphaF(0.25f);
    for (const SyncTasks::FieldRow& row : std::as_const(rows)) {
        const int r = m_table->rowCount();
        m_table->insertRow(r);
        const QStringList texts{row.field, row.thisValue, row.otherValue};
        for (int c = 0; c < 3; ++c) {
            auto* item = new QTableWidgetItem(texts[c]);
            item->setToolTip(texts[c]);
            if (row.differs) {
                item->setBackground(highlight);
                QFont font = item->font();
                font.setBold(true);
                item->setFont(font);
            }
            m_table->setItem(r, c, item);
        }
    }
    layout->addWidget(m_table, 1);

    auto* buttons = new QDialogButtonBox(this);
    auto* keepThis = buttons->addButton(ui(u"Keep This Version"), QDialogButtonBox::AcceptRole);
    keepThis->setObjectName(u"keepThis"_s);
    auto* keepOther = buttons->addButton(ui(u"Keep the Other Version"), QDialogButtonBox::AcceptRole);
    keepOther->setObjectName(u"keepOther"_s);
    connect(keepThis, &QPushButton::clicked, this, [this] { choose(SyncTasks::Choice::keepThis); });
    connect(keepOther, &QPushButton::clicked, this, [this] { choose(SyncTasks::Choice::keepOther); });
    if (m_conflict.kind == SyncTasks::RecordKind::invoice) {
        auto* keepBoth = buttons->addButton(ui(u"Keep Both"), QDialogButtonBox::AcceptRole);
        keepBoth->setObjectName(u"keepBoth"_s);
        keepBoth->setToolTip(ui(u"The other version becomes an invoice of its own with the next number."));
        connect(keepBoth, &QPushButton::clicked, this, [this] { choose(SyncTasks::Choice::keepBoth); });
    }
    buttons->addButton(QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    // The choice buttons close the dialog themselves once the choice was carried out (the
    // box's accepted() is left unconnected), so a failure keeps it open.
    layout->addWidget(buttons);
    resize(820, 560);
}

void ConflictDialog::choose(SyncTasks::Choice choice)
{
    try {
        m_outcome = SyncTasks::resolve(m_workspace, m_conflict, choice);
        accept();
    } catch (const TaskError& error) {
        QMessageBox::warning(this, windowTitle(), error.message());
    }
}
