#pragma once

#include "plugins/forge/Forge.h"
#include "plugins/forge/ForgeSession.h"
#include "plugins/forge/Provider.h"

#include <QHash>
#include <QObject>

#include <array>
#include <memory>

// Reads releases, commits and archives of repositories on GitHub, GitLab and Gitea. The
// client works on the thread it lives on: network replies arrive there, so its host cache
// and pending detections are only ever touched by one piece of code at a time.
class ForgeClient : public QObject
{
    Q_OBJECT
public:
    explicit ForgeClient(QObject* parent = nullptr);
    ~ForgeClient() override;

    ForgeSession& session() { return *m_session; }
    const Provider& provider(Forge forge) const;

    // Parses the link (`invalidURL`) and detects the forge of its host (`unknownForge`).
    void resolve(const QString& link, ForgeCallback<Repository> done);
    // The cache answers at once; otherwise the providers are probed, the one the host name
    // suggests first. Concurrent detections of one host share one round of probes.
    void detectForge(const QUrl& origin, ForgeCallback<Forge> done);

    void latestRelease(const Repository& repository, ForgeCallback<std::optional<Release>> done);
    void latestCommit(const Repository& repository, ForgeCallback<std::optional<Commit>> done);
    QUrl archiveURL(const Repository& repository, const QString& ref) const;
    void rawFile(const Repository& repository, const QString& path, const QString& ref,
                 ForgeCallback<QByteArray> done);
    // Archives are written straight to the file, within the session's download limit.
    void download(const QUrl& url, const QString& filePath, ForgeCallback<Done> done);

    // The forge a host name suggests: "gitlab" before "gitea"/"forgejo" before "github".
    static std::optional<Forge> guessForge(const QString& host);
    // The cache key of an origin: its host, with the port when one is given, since two
    // forges on one machine may listen on different ports.
    static QString hostKey(const QUrl& origin);
    std::optional<Forge> cachedForge(const QUrl& origin) const;

private:
    void probeNext(const QString& key, const QUrl& origin, QList<Forge> remaining);
    void finishDetection(const QString& key, const ForgeResult<Forge>& result);

    ForgeSession* m_session;
    std::array<std::unique_ptr<Provider>, 3> m_providers;
    QHash<QString, Forge> m_hostCache;
    QHash<QString, QList<ForgeCallback<Forge>>> m_pendingDetections;
};
