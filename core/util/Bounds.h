#pragma once

#include <QtGlobal>

// How much of a file or answer from outside Ledra reads before it refuses it. Every reader of
// outside input takes its cap from here, so that one place says what Ledra accepts. The caps are
// far above anything a real invoice, card or request needs, and low enough that refusing costs
// well under a second and a few dozen megabytes.
namespace Bounds {

inline constexpr qint64 megabyte = 1024 * 1024;

// Any whole file read at once: received e-invoices and PDFs, vCards, record files.
inline constexpr qint64 fileBytes = 64 * megabyte;
// One JSON record: invoice, profile, reminder and plugin manifest files, Ledra Data entries,
// plugin answers. Invoices with a thousand lines stay below one megabyte.
inline constexpr qint64 jsonRecordBytes = 16 * megabyte;
// What a plugin's entry point returns (an export may be a whole CSV of invoices).
inline constexpr qint64 pluginAnswerBytes = 64 * megabyte;
// The mail add-on's request: one invoice id.
inline constexpr qint64 mailRequestBytes = 64 * 1024;
// One embedded file of a PDF, decoded; and how many embedded files are looked at.
inline constexpr qint64 embeddedFileBytes = 32 * megabyte;
inline constexpr int embeddedFiles = 256;
// All the embedded files of one PDF together when every one is decoded (attachments -x).
inline constexpr qint64 embeddedFilesTotalBytes = 128 * megabyte;
// Contact cards dropped or imported, all cards of the data together.
inline constexpr qint64 vCardBytes = 16 * megabyte;
// A language model's answer: the invoice JSON it writes, and everything the server sends
// (event framing included) for it.
inline constexpr qint64 modelAnswerBytes = 1 * megabyte;
inline constexpr qint64 modelStreamBytes = 32 * megabyte;
// How deep the model's JSON may nest while it is being shown (the invoice needs four levels).
inline constexpr int modelJsonDepth = 32;

} // namespace Bounds
