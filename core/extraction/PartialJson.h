#pragma once

#include <QByteArray>
#include <QJsonObject>

#include <optional>

// A language model writes its JSON answer token by token. To show the fields as they arrive,
// the prefix received so far is closed into a valid document: an open string is ended, a
// dangling key, colon or comma is dropped, and the open objects and arrays are closed.
namespace PartialJson {

// The object the prefix stands for so far, or nothing while not even "{" has arrived or when it
// nests deeper than an invoice ever does. Linear in the size of the prefix.
std::optional<QJsonObject> complete(const QByteArray& prefix);

} // namespace PartialJson
