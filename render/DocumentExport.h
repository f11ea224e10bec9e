#pragma once

#include "model/Invoice.h"
#include "model/Profile.h"
#include "render/Styling.h"

#include <QByteArray>
#include <QList>

#include <functional>

#include <optional>

// The road from an invoice to the PDF that is exported: document, pages, PDF, the invoice
// record inside. Waits in a local event loop; needs a QGuiApplication prepared by
// RenderEnvironment::prepare().
namespace DocumentExport {

std::optional<QByteArray> invoicePdf(const Invoice& invoice, const Profile& profile, const Styling& styling,
                                     const QList<Invoice>& invoices = {});

// The same without waiting: `completion` runs on the main thread with the PDF, or nothing.
void invoicePdfAsync(const Invoice& invoice, const Profile& profile, const Styling& styling,
                     const QList<Invoice>& invoices,
                     std::function<void(std::optional<QByteArray>)> completion);

} // namespace DocumentExport
