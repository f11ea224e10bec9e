#pragma once

#include <QHashFunctions>
#include <QString>

// ISO 3166-1 alpha-2 country and ISO 4217 currency codes, stored as the bare code.
struct Country
{
    QString code;

    friend bool operator==(const Country&, const Country&) = default;
};

struct Currency
{
    QString code;

    friend bool operator==(const Currency&, const Currency&) = default;
};

inline size_t qHash(const Country& country, size_t seed = 0)
{
    return qHash(country.code, seed);
}

inline size_t qHash(const Currency& currency, size_t seed = 0)
{
    return qHash(currency.code, seed);
}
