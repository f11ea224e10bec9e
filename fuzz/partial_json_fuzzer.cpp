// The language model's answer as it streams in: every prefix is closed into a document and read
// as far as it goes. The server is local but its answers are not ours.
#include "FuzzSupport.h"
#include "extraction/ExtractedInvoice.h"
#include "extraction/PartialJson.h"
#include "util/Bounds.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace {

// How deep the containers of a JSON text nest, strings left out.
int nesting(const QByteArray& json)
{
    int depth = 0;
    int deepest = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : json) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '{' || c == '[') {
            deepest = std::max(deepest, ++depth);
        } else if (c == '}' || c == ']') {
            --depth;
        }
    }
    return deepest;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 256 * 1024))
        return 0;
    const QByteArray answer = FuzzSupport::bytes(data, size);
    const std::optional<QJsonObject> partial = PartialJson::complete(answer);
    if (partial)
        (void)ExtractionSchema::decodePartial(*partial, QStringLiteral("fuzz"));

    // A complete object must come out as it went in: the closing adds nothing then. (Deeper than
    // an invoice ever nests, the reader refuses it.)
    QJsonParseError error;
    const QJsonDocument whole = QJsonDocument::fromJson(answer, &error);
    if (error.error == QJsonParseError::NoError && whole.isObject() &&
        nesting(answer) <= Bounds::modelJsonDepth) {
        FuzzSupport::check(partial.has_value(), "a complete object is read");
        FuzzSupport::check(*partial == whole.object(), "a complete object is read unchanged");
        try {
            (void)ExtractionSchema::decode(whole.object());
        } catch (const std::exception&) {
        }
    }
    return 0;
}
