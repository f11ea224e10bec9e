#pragma once

#include "plugins/forge/Forge.h"

#include <QJsonObject>
#include <QNetworkRequest>

class ForgeSession;
struct HttpResponse;

// What the client needs of one forge family: where its API lives, how its answers look, and
// whether an origin speaks it. The requests themselves go through the shared session.
class Provider
{
public:
    explicit Provider(Forge forge) : m_forge(forge) {}
    virtual ~Provider() = default;
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    Forge forge() const { return m_forge; }

    virtual QUrl apiBase(const QUrl& origin) const = 0;
    // The zip of the source at a tag or commit.
    virtual QUrl archiveURL(const Repository& repository, const QString& ref) const = 0;

    // nullopt when the repository has no release.
    void latestRelease(ForgeSession& session, const Repository& repository,
                       ForgeCallback<std::optional<Release>> done) const;
    // nullopt when the repository has no commit.
    void latestCommit(ForgeSession& session, const Repository& repository,
                      ForgeCallback<std::optional<Commit>> done) const;
    void rawFile(ForgeSession& session, const Repository& repository, const QString& path, const QString& ref,
                 ForgeCallback<QByteArray> done) const;
    // Whether the origin answers this forge's version or meta request as this forge would.
    void probe(ForgeSession& session, const QUrl& origin, std::function<void(bool)> done) const;

    // A request with the headers this forge wants (`raw` for file contents).
    virtual QNetworkRequest request(const ForgeSession& session, const QUrl& url, bool raw = false) const;

protected:
    virtual QUrl latestReleaseURL(const Repository& repository) const = 0;
    virtual QUrl latestCommitURL(const Repository& repository) const = 0;
    virtual QUrl rawFileURL(const Repository& repository, const QString& path, const QString& ref) const = 0;
    virtual QUrl probeURL(const QUrl& origin) const = 0;
    virtual bool acceptsProbe(const HttpResponse& response) const = 0;
    virtual std::optional<Release> decodeRelease(const QJsonObject& object,
                                                 const Repository& repository) const = 0;
    virtual std::optional<Commit> decodeCommit(const QJsonObject& object,
                                               const Repository& repository) const = 0;

    // base + path, where `path` is already percent-encoded.
    static QUrl join(const QUrl& base, const QString& encodedPath);
    static QString segment(const QString& text);
    // "/repos/{owner}/{name}", the common stem of GitHub's and Gitea's paths.
    static QString reposPath(const Repository& repository);

private:
    Forge m_forge;
};

class GitHubProvider : public Provider
{
public:
    GitHubProvider() : Provider(Forge::gitHub) {}

    // The public host is served from a separate API host; Enterprise servers under /api/v3.
    static inline const QString publicHost = QStringLiteral("github.com");
    static inline const QUrl publicAPI = QUrl(QStringLiteral("https://api.github.com"));

    QUrl apiBase(const QUrl& origin) const override;
    QUrl archiveURL(const Repository& repository, const QString& ref) const override;
    QNetworkRequest request(const ForgeSession& session, const QUrl& url, bool raw = false) const override;

protected:
    QUrl latestReleaseURL(const Repository& repository) const override;
    QUrl latestCommitURL(const Repository& repository) const override;
    QUrl rawFileURL(const Repository& repository, const QString& path, const QString& ref) const override;
    QUrl probeURL(const QUrl& origin) const override;
    bool acceptsProbe(const HttpResponse& response) const override;
    std::optional<Release> decodeRelease(const QJsonObject& object,
                                         const Repository& repository) const override;
    std::optional<Commit> decodeCommit(const QJsonObject& object,
                                       const Repository& repository) const override;
};

class GitLabProvider : public Provider
{
public:
    GitLabProvider() : Provider(Forge::gitLab) {}

    QUrl apiBase(const QUrl& origin) const override;
    QUrl archiveURL(const Repository& repository, const QString& ref) const override;

    // The project path as one segment, its slashes sent as %2F.
    static QString projectID(const Repository& repository);

protected:
    QUrl latestReleaseURL(const Repository& repository) const override;
    QUrl latestCommitURL(const Repository& repository) const override;
    QUrl rawFileURL(const Repository& repository, const QString& path, const QString& ref) const override;
    QUrl probeURL(const QUrl& origin) const override;
    bool acceptsProbe(const HttpResponse& response) const override;
    std::optional<Release> decodeRelease(const QJsonObject& object,
                                         const Repository& repository) const override;
    std::optional<Commit> decodeCommit(const QJsonObject& object,
                                       const Repository& repository) const override;
};

class GiteaProvider : public Provider
{
public:
    GiteaProvider() : Provider(Forge::gitea) {}

    QUrl apiBase(const QUrl& origin) const override;
    QUrl archiveURL(const Repository& repository, const QString& ref) const override;

protected:
    QUrl latestReleaseURL(const Repository& repository) const override;
    QUrl latestCommitURL(const Repository& repository) const override;
    QUrl rawFileURL(const Repository& repository, const QString& path, const QString& ref) const override;
    QUrl probeURL(const QUrl& origin) const override;
    bool acceptsProbe(const HttpResponse& response) const override;
    std::optional<Release> decodeRelease(const QJsonObject& object,
                                         const Repository& repository) const override;
    std::optional<Commit> decodeCommit(const QJsonObject& object,
                                       const Repository& repository) const override;
};
