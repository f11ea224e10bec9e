#include "payment/Iban.h"

namespace Iban {

QString compact(const QString& iban)
{
    QString out = iban;
    out.remove(u' ');
    return out.toUpper();
}

bool isValid(const QString& iban)
{
    const QString number = compact(iban);
    if (number.size() < 15 || number.size() > 34)
        return false;
    // The country and check digits move to the end; letters count as 10...35.
    const QString rearranged = number.mid(4) + number.left(4);
    int remainder = 0;
    for (const QChar c : rearranged) {
        if (c >= u'0' && c <= u'9') {
            remainder = (remainder * 10 + c.digitValue()) % 97;
        } else if (c >= u'A' && c <= u'Z') {
            const int value = c.unicode() - u'A' + 10;
            remainder = (remainder * 100 + value) % 97;
        } else {
            return false;
        }
    }
    return remainder == 1;
}

} // namespace Iban
