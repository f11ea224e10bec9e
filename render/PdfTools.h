#pragma once

#include <QByteArray>
#include <QList>

#include <optional>

// PDF assembly with qpdf.
namespace PdfTools {

// The first page of each PDF, in order, joined into one document whose pages measure exactly
// `width` × `height` points (the engine rounds A4 to 594.96 × 841.92). Nothing when no page
// could be read.
std::optional<QByteArray> joinFirstPages(const QList<QByteArray>& pdfs, double width, double height);

// Number of pages and the media box of the first page; for tests and diagnostics.
struct Info
{
    int pageCount = 0;
    double width = 0;
    double height = 0;
};
std::optional<Info> info(const QByteArray& pdf);

} // namespace PdfTools
