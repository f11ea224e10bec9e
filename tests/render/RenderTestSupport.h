#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "render/Styling.h"

#include <QByteArray>
#include <QString>

namespace RenderTest {

// The built-in sample invoice and profile (German documents).
Invoice sampleInvoice();
Profile sampleProfile();
// Default styling pinned to A4, independent of the machine's region.
Styling a4Styling();
// The sample invoice with `count` items instead of its three.
Invoice invoiceWithItems(int count);

// The text of a PDF as pdftotext (poppler) extracts it, in layout order.
QString pdfText(const QByteArray& pdf);

} // namespace RenderTest
