#pragma once

#include <QString>

// Style sheets as data: what goes into a page's <style> element can neither end that element
// nor make the page fetch anything.
namespace CssGuard {

// The user's style sheet made safe to inline: "@import" rules are dropped, a url() that is not
// a data: URL and the functions that take bare URLs (image-set(), src() ...) become "none".
// Escapes are decoded before names are compared, so "@\69mport" is an import as well. The
// result has passed styleElementText().
QString userStyleSheet(const QString& css);

// Text for inside <style>…</style>: every "<" written as the CSS escape "\3c ", so no "</style"
// can appear. "<" has no meaning in CSS outside strings and comments, where the escape reads
// the same.
QString styleElementText(const QString& css);

// Text for inside a quoted CSS string ('…' or "…"): everything but letters, digits, space,
// "-", "_" and "." written as a CSS escape.
QString stringContent(const QString& text);

} // namespace CssGuard
