#pragma once

#include "render/Styling.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// Where a page sits in its document; set as a class on the page's body.
enum class PageKind
{
    single,
    first,
    middle,
    last
};

QString pageKindClass(PageKind kind);                        // "page-single" ...
std::optional<PageKind> pageKindFromClass(QStringView text); // accepts "single" and "page-single"

// A document that the paginator splits into pages: blocks that must not be split, matched by
// CSS selectors in document order, and a header that repeats on continuation pages.
class PaginatedDocument
{
public:
    virtual ~PaginatedDocument() = default;

    // The HTML of one page holding `blocks` (indices into the measured blocks); every block
    // when there is no list (measuring). `extraClasses` go onto the body ("measuring").
    virtual QString render(PageKind kind, const std::optional<QList<int>>& blocks,
                           const QString& extraClasses = {}) const = 0;
    virtual QStringList selectors() const = 0;
    virtual int blockCount() const = 0;
    virtual PageFormat pageFormat() const = 0;
    // Filler rows the document adds after its real rows.
    virtual int paddingCount() const { return 0; }
    virtual std::optional<QString> headerSelector() const { return std::nullopt; }
    // Extra space kept free at the top of continuation pages, in CSS pixels.
    virtual double topReserve(double rem) const = 0;
};

struct PageSize
{
    double widthPoints;
    double heightPoints;
    double widthRem;
    double heightRem;
};

PageSize pageSize(PageFormat format);
