#pragma once

class QApplication;

// Text from outside reaches labels, message boxes and tooltips: a customer's name from a received
// e-invoice, a file name, a model server's name, the other side of a sync conflict. Qt shows a
// label's text as HTML as soon as it merely looks like HTML, so such text could lay itself out
// or pull in local images. Installed once, every label (those inside message boxes and tooltips
// too) shows its text as it is, unless its code asked for rich text explicitly.
namespace PlainTextLabels {

void install(QApplication& application);

} // namespace PlainTextLabels
