#pragma once

#include <QString>

#include <optional>

// Numbers as the user reads and types them in the interface language ("1.234,50" in German,
// "1,234.50" in English). Typing is forgiving: a plain "12.5" is understood in German too.
namespace LocaleNumbers {

std::optional<double> parse(const QString& text);
// Two decimals at least, up to four when the value has them (unit prices like 0.0125).
QString price(double value);
// As short as the value allows ("1", "2,5").
QString plain(double value);

} // namespace LocaleNumbers
