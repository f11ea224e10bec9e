#include "plugins/forge/Provider.h"

#include "plugins/forge/ForgeSession.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::Literals::StringLiterals;

namespace {

std::optional<QJsonDocument> decodeJson(const QByteArray& body)
{
    QJsonParseError error;
    QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    return document;
}

std::optional<QString> optionalString(const QJsonObject& object, QLatin1StringView key)
{
    const QJsonValue value = object.value(key);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

std::optional<QDateTime> optionalDate(const QJsonValue& value)
{
    if (!value.isString())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date;
}

std::optional<QUrl> optionalURL(const QJsonObject& object, QLatin1StringView key)
{
    const std::optional<QString> text = optionalString(object, key);
    if (!text || text->isEmpty())
        return std::nullopt;
    QUrl url(*text);
    if (!url.isValid())
        return std::nullopt;
    return url;
}

// GitHub and Gitea describe releases alike.
std::optional<Release> decodeGitHubStyleRelease(const QJsonObject& object, const QUrl& tagArchive)
{
    const std::optional<QString> tag = optionalString(object, "tag_name"_L1);
    if (!tag || tag->isEmpty())
        return std::nullopt;
    Release release;
    release.tag = *tag;
    release.name = optionalString(object, "name"_L1);
    for (const QJsonValue& entry : object.value("assets"_L1).toArray()) {
        const QJsonObject asset = entry.toObject();
        const std::optional<QString> name = optionalString(asset, "name"_L1);
        const std::optional<QUrl> url = optionalURL(asset, "browser_download_url"_L1);
        if (name && url)
            release.assets.append({*name, *url});
    }
    release.sourceArchiveURL = optionalURL(object, "zipball_url"_L1).value_or(tagArchive);
    return release;
}

} // namespace

// Shared operations

QNetworkRequest Provider::request(const ForgeSession& session, const QUrl& url, bool) const
{
    return session.request(url);
}

void Provider::latestRelease(ForgeSession& session, const Repository& repository,
                             ForgeCallback<std::optional<Release>> done) const
{
    session.get(request(session, latestReleaseURL(repository)),
                [this, repository, done = std::move(done)](const HttpResponse& response) {
                    // All three forges answer 404 for a repository without releases.
                    if (response.status == 404)
                        return done(std::optional<Release>());
                    if (std::optional<ForgeError> error = ForgeSession::failureOf(response))
                        return done(*error);
                    const std::optional<QJsonDocument> document = decodeJson(response.body);
                    if (!document || !document->isObject())
                        return done(ForgeError::invalidResponse());
                    std::optional<Release> release = decodeRelease(document->object(), repository);
                    if (!release)
                        return done(ForgeError::invalidResponse());
                    done(std::move(release));
                });
}

void Provider::latestCommit(ForgeSession& session, const Repository& repository,
                            ForgeCallback<std::optional<Commit>> done) const
{
    session.get(request(session, latestCommitURL(repository)),
                [this, repository, done = std::move(done)](const HttpResponse& response) {
                    // An empty repository: 404 (GitLab, Gitea) or 409 (GitHub).
                    if (response.status == 404 || response.status == 409)
                        return done(std::optional<Commit>());
                    if (std::optional<ForgeError> error = ForgeSession::failureOf(response))
                        return done(*error);
                    const std::optional<QJsonDocument> document = decodeJson(response.body);
                    if (!document || !document->isArray())
                        return done(ForgeError::invalidResponse());
                    const QJsonArray commits = document->array();
                    if (commits.isEmpty())
                        return done(std::optional<Commit>());
                    std::optional<Commit> commit = decodeCommit(commits.first().toObject(), repository);
                    if (!commit)
                        return done(ForgeError::invalidResponse());
                    done(std::move(commit));
                });
}

void Provider::rawFile(ForgeSession& session, const Repository& repository, const QString& path,
                       const QString& ref, ForgeCallback<QByteArray> done) const
{
    session.get(request(session, rawFileURL(repository, path, ref), true),
                [done = std::move(done)](const HttpResponse& response) {
                    if (std::optional<ForgeError> error = ForgeSession::failureOf(response))
                        return done(*error);
                    done(response.body);
                });
}

void Provider::probe(ForgeSession& session, const QUrl& origin, std::function<void(bool)> done) const
{
    session.get(
        request(session, probeURL(origin)),
        [this, done = std::move(done)](const HttpResponse& response) { done(acceptsProbe(response)); });
}

QUrl Provider::join(const QUrl& base, const QString& encodedPath)
{
    QByteArray text = base.toEncoded();
    while (text.endsWith('/'))
        text.chop(1);
    return QUrl::fromEncoded(text + encodedPath.toLatin1());
}

QString Provider::segment(const QString& text)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

QString Provider::reposPath(const Repository& repository)
{
    return u"/repos/"_s + segment(repository.owner) + u'/' + segment(repository.name);
}

namespace {

// The body decoded as a JSON object, when the response succeeded.
std::optional<QJsonObject> successObject(const HttpResponse& response)
{
    if (!response.isSuccess())
        return std::nullopt;
    const std::optional<QJsonDocument> document = decodeJson(response.body);
    if (!document || !document->isObject())
        return std::nullopt;
    return document->object();
}

QString pathSegments(const QString& path)
{
    return QString::fromLatin1(QUrl::toPercentEncoding(path, "/"));
}

} // namespace

// GitHub

QUrl GitHubProvider::apiBase(const QUrl& origin) const
{
    const QString host = origin.host().toLower();
    if (host == publicHost || host == u"www."_s + publicHost)
        return publicAPI;
    return join(origin, u"/api/v3"_s);
}

QNetworkRequest GitHubProvider::request(const ForgeSession& session, const QUrl& url, bool raw) const
{
    QNetworkRequest request = session.request(url);
    request.setRawHeader("Accept", raw ? "application/vnd.github.raw" : "application/vnd.github+json");
    return request;
}

QUrl GitHubProvider::latestReleaseURL(const Repository& repository) const
{
    return join(apiBase(repository.origin), reposPath(repository) + u"/releases/latest"_s);
}

QUrl GitHubProvider::latestCommitURL(const Repository& repository) const
{
    return join(apiBase(repository.origin), reposPath(repository) + u"/commits?per_page=1"_s);
}

QUrl GitHubProvider::archiveURL(const Repository& repository, const QString& ref) const
{
    return join(apiBase(repository.origin), reposPath(repository) + u"/zipball/"_s + segment(ref));
}

QUrl GitHubProvider::rawFileURL(const Repository& repository, const QString& path, const QString& ref) const
{
    return join(apiBase(repository.origin),
                reposPath(repository) + u"/contents/"_s + pathSegments(path) + u"?ref="_s + segment(ref));
}

QUrl GitHubProvider::probeURL(const QUrl& origin) const
{
    return join(apiBase(origin), u"/meta"_s);
}

bool GitHubProvider::acceptsProbe(const HttpResponse& response) const
{
    const std::optional<QJsonObject> object = successObject(response);
    return object && object->contains("verifiable_password_authentication"_L1);
}

std::optional<Release> GitHubProvider::decodeRelease(const QJsonObject& object,
                                                     const Repository& repository) const
{
    return decodeGitHubStyleRelease(object, archiveURL(repository, object.value("tag_name"_L1).toString()));
}

std::optional<Commit> GitHubProvider::decodeCommit(const QJsonObject& object,
                                                   const Repository& repository) const
{
    const std::optional<QString> sha = optionalString(object, "sha"_L1);
    if (!sha || sha->isEmpty())
        return std::nullopt;
    const QJsonObject details = object.value("commit"_L1).toObject();
    return Commit{*sha, optionalDate(details.value("author"_L1).toObject().value("date"_L1)),
                  optionalString(details, "message"_L1), archiveURL(repository, *sha)};
}

// GitLab

QUrl GitLabProvider::apiBase(const QUrl& origin) const
{
    return join(origin, u"/api/v4"_s);
}

QString GitLabProvider::projectID(const Repository& repository)
{
    return segment(repository.fullPath());
}

QUrl GitLabProvider::latestReleaseURL(const Repository& repository) const
{
    return join(apiBase(repository.origin),
                u"/projects/"_s + projectID(repository) + u"/releases/permalink/latest"_s);
}

QUrl GitLabProvider::latestCommitURL(const Repository& repository) const
{
    return join(apiBase(repository.origin),
                u"/projects/"_s + projectID(repository) + u"/repository/commits?per_page=1"_s);
}

QUrl GitLabProvider::archiveURL(const Repository& repository, const QString& ref) const
{
    return join(apiBase(repository.origin),
                u"/projects/"_s + projectID(repository) + u"/repository/archive.zip?sha="_s + segment(ref));
}

QUrl GitLabProvider::rawFileURL(const Repository& repository, const QString& path, const QString& ref) const
{
    return join(apiBase(repository.origin), u"/projects/"_s + projectID(repository) +
                                                u"/repository/files/"_s + segment(path) + u"/raw?ref="_s +
                                                segment(ref));
}

QUrl GitLabProvider::probeURL(const QUrl& origin) const
{
    return join(apiBase(origin), u"/version"_s);
}

bool GitLabProvider::acceptsProbe(const HttpResponse& response) const
{
    const std::optional<QJsonDocument> document = decodeJson(response.body);
    if (!document || !document->isObject())
        return false;
    const QJsonObject object = document->object();
    if (response.isSuccess())
        return object.value("version"_L1).isString();
    // gitlab.com answers /version only with a token; its refusal still shows who it is.
    return response.status == 401 && object.value("message"_L1).toString().startsWith(u"401"_s);
}

std::optional<Release> GitLabProvider::decodeRelease(const QJsonObject& object,
                                                     const Repository& repository) const
{
    const std::optional<QString> tag = optionalString(object, "tag_name"_L1);
    if (!tag || tag->isEmpty())
        return std::nullopt;
    Release release;
    release.tag = *tag;
    release.name = optionalString(object, "name"_L1);
    const QJsonObject assets = object.value("assets"_L1).toObject();
    for (const QJsonValue& entry : assets.value("links"_L1).toArray()) {
        const QJsonObject link = entry.toObject();
        const std::optional<QString> name = optionalString(link, "name"_L1);
        std::optional<QUrl> url = optionalURL(link, "direct_asset_url"_L1);
        if (!url)
            url = optionalURL(link, "url"_L1);
        if (name && url)
            release.assets.append({*name, *url});
    }
    release.sourceArchiveURL = archiveURL(repository, *tag);
    for (const QJsonValue& entry : assets.value("sources"_L1).toArray()) {
        const QJsonObject source = entry.toObject();
        if (source.value("format"_L1).toString() != u"zip")
            continue;
        if (const std::optional<QUrl> url = optionalURL(source, "url"_L1)) {
            release.sourceArchiveURL = *url;
            break;
        }
    }
    return release;
}

std::optional<Commit> GitLabProvider::decodeCommit(const QJsonObject& object,
                                                   const Repository& repository) const
{
    const std::optional<QString> id = optionalString(object, "id"_L1);
    if (!id || id->isEmpty())
        return std::nullopt;
    return Commit{*id, optionalDate(object.value("created_at"_L1)), optionalString(object, "message"_L1),
                  archiveURL(repository, *id)};
}

// Gitea

QUrl GiteaProvider::apiBase(const QUrl& origin) const
{
    return join(origin, u"/api/v1"_s);
}

QUrl GiteaProvider::latestReleaseURL(const Repository& repository) const
{
    return join(apiBase(repository.origin), reposPath(repository) + u"/releases/latest"_s);
}

QUrl GiteaProvider::latestCommitURL(const Repository& repository) const
{
    return join(apiBase(repository.origin), reposPath(repository) + u"/commits?limit=1"_s);
}

QUrl GiteaProvider::archiveURL(const Repository& repository, const QString& ref) const
{
    return join(apiBase(repository.origin),
                reposPath(repository) + u"/archive/"_s + segment(ref) + u".zip"_s);
}

QUrl GiteaProvider::rawFileURL(const Repository& repository, const QString& path, const QString& ref) const
{
    return join(apiBase(repository.origin),
                reposPath(repository) + u"/raw/"_s + pathSegments(path) + u"?ref="_s + segment(ref));
}

QUrl GiteaProvider::probeURL(const QUrl& origin) const
{
    return join(apiBase(origin), u"/version"_s);
}

bool GiteaProvider::acceptsProbe(const HttpResponse& response) const
{
    const std::optional<QJsonObject> object = successObject(response);
    return object && object->value("version"_L1).isString();
}

std::optional<Release> GiteaProvider::decodeRelease(const QJsonObject& object,
                                                    const Repository& repository) const
{
    return decodeGitHubStyleRelease(object, archiveURL(repository, object.value("tag_name"_L1).toString()));
}

std::optional<Commit> GiteaProvider::decodeCommit(const QJsonObject& object,
                                                  const Repository& repository) const
{
    const std::optional<QString> sha = optionalString(object, "sha"_L1);
    if (!sha || sha->isEmpty())
        return std::nullopt;
    const QJsonObject details = object.value("commit"_L1).toObject();
    std::optional<QDateTime> date = optionalDate(object.value("created"_L1));
    if (!date)
        date = optionalDate(details.value("author"_L1).toObject().value("date"_L1));
    return Commit{*sha, date, optionalString(details, "message"_L1), archiveURL(repository, *sha)};
}
