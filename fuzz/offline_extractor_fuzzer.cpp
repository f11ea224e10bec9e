// Pasted text drafted into an invoice without a language model: any text a user copies from an
// e-mail or a web page.
#include "FuzzSupport.h"
#include "extraction/OfflineExtractor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    // Pasted requests are a page or two; the extractor's rules must stay linear well past that.
    if (!FuzzSupport::accept(size, 64 * 1024))
        return 0;
    (void)OfflineExtractor::extract(QString::fromUtf8(FuzzSupport::bytes(data, size)));
    return 0;
}
