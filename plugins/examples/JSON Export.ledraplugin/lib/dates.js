// Record dates are seconds since 2001-01-01 00:00:00 UTC.
var REFERENCE_MS = Date.UTC(2001, 0, 1);

function pad(n) {
    return (n < 10 ? '0' : '') + n;
}

// "yyyy-MM-dd" of a record date, in UTC (good enough for dates set at local noon or midnight
// in Europe; use the summary's "date" where the calendar day must be exact).
exports.day = function (seconds) {
    if (seconds === null || seconds === undefined)
        return null;
    var d = new Date(REFERENCE_MS + seconds * 1000);
    return d.getUTCFullYear() + '-' + pad(d.getUTCMonth() + 1) + '-' + pad(d.getUTCDate());
};
