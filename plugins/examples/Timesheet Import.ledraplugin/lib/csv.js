// A small CSV reader: the separator is guessed from the header line (";" or ","), fields may
// be quoted with "", and quotes inside quoted fields are doubled.
function splitLine(line, separator) {
    var fields = [], field = '', quoted = false;
    for (var i = 0; i < line.length; i++) {
        var c = line[i];
        if (quoted) {
            if (c === '"' && line[i + 1] === '"') { field += '"'; i++; }
            else if (c === '"') quoted = false;
            else field += c;
        } else if (c === '"') {
            quoted = true;
        } else if (c === separator) {
            fields.push(field);
            field = '';
        } else {
            field += c;
        }
    }
    fields.push(field);
    return fields.map(function (f) { return f.trim(); });
}

// Rows as objects keyed by the lower-cased header names.
exports.parse = function (text) {
    var lines = text.split(/\r?\n/).filter(function (l) { return l.trim() !== ''; });
    if (lines.length === 0)
        return [];
    var separator = lines[0].split(';').length >= lines[0].split(',').length ? ';' : ',';
    var header = splitLine(lines[0], separator).map(function (h) { return h.toLowerCase(); });
    return lines.slice(1).map(function (line) {
        var fields = splitLine(line, separator), row = {};
        header.forEach(function (name, i) { row[name] = fields[i] === undefined ? '' : fields[i]; });
        return row;
    });
};

// "1.234,56" and "1234.56" both give 1234.56.
exports.amount = function (text) {
    var t = String(text).replace(/\s/g, '');
    if (t.indexOf(',') >= 0)
        t = t.replace(/\./g, '').replace(',', '.');
    return Number(t);
};

// "31.12.2025" or "2025-12-31" as "2025-12-31"; null otherwise.
exports.day = function (text) {
    var m = /^(\d{1,2})\.(\d{1,2})\.(\d{4})$/.exec(text);
    if (m)
        return m[3] + '-' + ('0' + m[2]).slice(-2) + '-' + ('0' + m[1]).slice(-2);
    return /^\d{4}-\d{2}-\d{2}$/.test(text) ? text : null;
};
