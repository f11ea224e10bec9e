#include "plugins/forge/ForgeClient.h"

ForgeClient::ForgeClient(QObject* parent)
    : QObject(parent), m_session(new ForgeSession(this)), m_providers{std::make_unique<GitHubProvider>(),
                                                                      std::make_unique<GitLabProvider>(),
                                                                      std::make_unique<GiteaProvider>()}
{}

ForgeClient::~ForgeClient()
{
    // Replies still in flight hold callbacks into the providers: end them first.
    delete m_session;
    m_session = nullptr;
}

const Provider& ForgeClient::provider(Forge forge) const
{
    for (const auto& provider : m_providers) {
        if (provider->forge() == forge)
            return *provider;
    }
    Q_UNREACHABLE();
}

void ForgeClient::resolve(const QString& link, ForgeCallback<Repository> done)
{
    std::optional<Repository> parsed = Repository::parse(link);
    if (!parsed)
        return done(ForgeError::invalidURL());
    detectForge(parsed->origin,
                [repository = *parsed, done = std::move(done)](ForgeResult<Forge> forge) mutable {
                    if (!forge)
                        return done(forge.error());
                    repository.forge = forge.value();
                    done(std::move(repository));
                });
}

std::optional<Forge> ForgeClient::guessForge(const QString& host)
{
    const QString lower = host.toLower();
    if (lower.contains(u"gitlab"))
        return Forge::gitLab;
    if (lower.contains(u"gitea") || lower.contains(u"forgejo"))
        return Forge::gitea;
    if (lower.contains(u"github"))
        return Forge::gitHub;
    return std::nullopt;
}

QString ForgeClient::hostKey(const QUrl& origin)
{
    const QString host = origin.host().toLower();
    return origin.port() < 0 ? host : host + u':' + QString::number(origin.port());
}

std::optional<Forge> ForgeClient::cachedForge(const QUrl& origin) const
{
    const auto it = m_hostCache.constFind(hostKey(origin));
    if (it == m_hostCache.constEnd())
        return std::nullopt;
    return *it;
}

void ForgeClient::detectForge(const QUrl& origin, ForgeCallback<Forge> done)
{
    if (const std::optional<Forge> cached = cachedForge(origin))
        return done(*cached);
    const QString key = hostKey(origin);
    auto pending = m_pendingDetections.find(key);
    if (pending != m_pendingDetections.end()) {
        pending->append(std::move(done));
        return;
    }
    m_pendingDetections.insert(key, {std::move(done)});

    QList<Forge> order{Forge::gitHub, Forge::gitLab, Forge::gitea};
    if (const std::optional<Forge> guess = guessForge(origin.host())) {
        order.removeOne(*guess);
        order.prepend(*guess);
    }
    probeNext(key, origin, order);
}

void ForgeClient::probeNext(const QString& key, const QUrl& origin, QList<Forge> remaining)
{
    if (remaining.isEmpty())
        return finishDetection(key, ForgeError::unknownForge());
    const Forge forge = remaining.takeFirst();
    provider(forge).probe(*m_session, origin, [this, key, origin, forge, remaining](bool accepted) {
        if (accepted) {
            m_hostCache.insert(key, forge);
            return finishDetection(key, forge);
        }
        probeNext(key, origin, remaining);
    });
}

void ForgeClient::finishDetection(const QString& key, const ForgeResult<Forge>& result)
{
    const QList<ForgeCallback<Forge>> waiting = m_pendingDetections.take(key);
    for (const ForgeCallback<Forge>& callback : waiting)
        callback(result);
}

void ForgeClient::latestRelease(const Repository& repository, ForgeCallback<std::optional<Release>> done)
{
    provider(repository.forge).latestRelease(*m_session, repository, std::move(done));
}

void ForgeClient::latestCommit(const Repository& repository, ForgeCallback<std::optional<Commit>> done)
{
    provider(repository.forge).latestCommit(*m_session, repository, std::move(done));
}

QUrl ForgeClient::archiveURL(const Repository& repository, const QString& ref) const
{
    return provider(repository.forge).archiveURL(repository, ref);
}

void ForgeClient::rawFile(const Repository& repository, const QString& path, const QString& ref,
                          ForgeCallback<QByteArray> done)
{
    provider(repository.forge).rawFile(*m_session, repository, path, ref, std::move(done));
}

void ForgeClient::download(const QUrl& url, const QString& filePath, ForgeCallback<Done> done)
{
    m_session->download(m_session->request(url), filePath, std::move(done));
}
