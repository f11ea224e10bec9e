#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

class Workspace;

// Serves the mail add-on's requests: it writes "MailAttachments/ExportRequest.json" with the
// id of the invoice it wants, and finds the document in "MailAttachments": the PDF, the
// XRechnung XML or the ZUGFeRD PDF, as the invoice's profile says. A request is served at
// most once; one that cannot be served is dropped without a word, as the add-on expects.
class MailExtensionExportHandler : public QObject
{
    Q_OBJECT
public:
    explicit MailExtensionExportHandler(Workspace& workspace, QString container = {},
                                        QObject* parent = nullptr);

    QString requestPath() const;
    QString attachmentsFolder() const;

    // Serves a waiting request, if any; `done` gets the file written, or nothing.
    void handlePendingRequest(std::function<void(std::optional<QString>)> done = {});
    // The same, waiting in a local event loop (the command line).
    std::optional<QString> handlePendingRequestNow();

    // Writes "MailExtensionSync.json" for the active profile.
    bool sync();

private:
    Workspace& m_workspace;
    QString m_container;
};
