// Number formats ("RE-{YYYY}-{NNN}") come with profiles from Ledra Data files and synced data
// folders; each is parsed, written back and rendered with extreme numbers and dates. Writing
// may normalise (a number chip has at most five digits), but what it writes parses the same.
#include "FuzzSupport.h"
#include "numbering/NumberFormat.h"

#include <QDate>

#include <limits>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSupport::setUp();
    if (!FuzzSupport::accept(size, 64 * 1024))
        return 0;
    const QString format = QString::fromUtf8(FuzzSupport::bytes(data, size));
    const QList<NumberFormatSegment> segments = NumberFormat::parse(format);
    FuzzSupport::check(NumberFormat::parse(NumberFormat::write(segments)) == segments,
                       "a written format parses to the same chips");
    for (const qint64 number : {qint64(0), qint64(1), qint64(-1), qint64(99999), qint64(100000),
                                std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()})
        for (const QDate date :
             {QDate(2025, 3, 14), QDate(1, 1, 1), QDate(-4713, 1, 2), QDate(9999, 12, 31), QDate()})
            (void)NumberFormat::render(format, number, date, format.left(64));
    (void)NumberFormat::parseToken(format);
    // Old profile files keep prefix, separator, position and length apart.
    const qsizetype third = format.size() / 3;
    (void)NumberFormat::fromLegacySettings(format.left(third), format.mid(third, third),
                                           format.mid(2 * third), size > 0 ? int(data[0]) - 64 : 3);
    return 0;
}
