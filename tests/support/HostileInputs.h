#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Files an attacker would send, made on the spot: the regression tests and the benchmark of
// hostile input use the same ones.
namespace HostileInputs {

// A PDF whose embedded file `name` is `decodedBytes` of zeros, stored twice deflated
// (/Filter [/FlateDecode /FlateDecode]) so that the PDF stays a few kilobytes. With `invoiceXml`
// a real "factur-x.xml" rides along beside it.
QByteArray bombPdf(qint64 decodedBytes, const QString& name, const QByteArray& invoiceXml = {});

// A vCard 2.1 whose quoted-printable NOTE is folded with soft line breaks ("=" at the end of
// every line of 70 characters) until the card is about `bytes` long.
QByteArray foldedVCard(qint64 bytes);

// `{"note":` and then `depth` unclosed "[" : how a model's answer can nest without end.
QByteArray nestedAnswer(qint64 depth);

} // namespace HostileInputs
