#pragma once

#include "model/Profile.h"
#include "util/JsonReader.h"
#include "util/JsonWriter.h"

#include <QByteArray>

// The JSON form of a profile ("profile.json"). The folder name (profileName) is not part of it.
namespace ProfileJson {

QByteArray encode(const Profile& profile);
void write(JsonWriter& writer, const Profile& profile);

// Lenient like the invoice reader; missing keys keep the new-profile values of `region`,
// except "vatPercentage", which is 19 when missing. Old files' numbering keys become a
// number format. Throws JsonDecodeError.
Profile decode(const QByteArray& bytes, const Country& region);
Profile decode(const QByteArray& bytes);
Profile read(const JsonFieldReader& reader, const Country& region);

} // namespace ProfileJson
