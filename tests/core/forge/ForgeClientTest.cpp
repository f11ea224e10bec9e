#include "support/ForgeTestServer.h"

#include "l10n/Strings.h"
#include "plugins/forge/ForgeClient.h"
#include "util/Clock.h"
#include "util/WaitFor.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

template <typename T, typename Start>
ForgeResult<T> run(Start start)
{
    return waitForReport<ForgeResult<T>>(start, 15000).value();
}

Repository repositoryAt(const ForgeTestServer& server, Forge forge, const QString& path)
{
    return *Repository::parse(server.url(path), forge);
}

} // namespace

TEST(RepositoryLink, TakesTheLinkApart)
{
    const auto plain = Repository::parse(u"https://github.com/acme/bank-sync"_s);
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->origin, QUrl(u"https://github.com"_s));
    EXPECT_EQ(plain->owner, u"acme"_s);
    EXPECT_EQ(plain->name, u"bank-sync"_s);
    EXPECT_TRUE(plain->subgroups.isEmpty());
    EXPECT_EQ(Repository::parse(u"https://github.com/acme/bank-sync.git"_s), plain);
    EXPECT_EQ(Repository::parse(u"https://github.com/acme/bank-sync/"_s), plain);

    const auto nested = Repository::parse(u"https://gitlab.example.com:8443/team/tools/ledra/exporter.git"_s);
    ASSERT_TRUE(nested);
    EXPECT_EQ(nested->origin, QUrl(u"https://gitlab.example.com:8443"_s));
    EXPECT_EQ(nested->subgroups, (QStringList{u"tools"_s, u"ledra"_s}));
    EXPECT_EQ(nested->fullPath(), u"team/tools/ledra/exporter"_s);

    for (const QString& invalid : {u"https://github.com/acme"_s, u"github.com/acme/repo"_s, u"not a link"_s,
                                   u"file:///home/acme/repo"_s, u"https://github.com/acme/.git"_s, QString()})
        EXPECT_FALSE(Repository::parse(invalid)) << qPrintable(invalid);
}

TEST(ForgeClient, ApiBasesAndHostGuesses)
{
    ForgeClient client;
    auto base = [&](Forge forge, const QString& origin) {
        return client.provider(forge).apiBase(QUrl(origin)).toString();
    };
    EXPECT_EQ(base(Forge::gitHub, u"https://github.com"_s), u"https://api.github.com"_s);
    EXPECT_EQ(base(Forge::gitHub, u"https://git.corp.example"_s), u"https://git.corp.example/api/v3"_s);
    EXPECT_EQ(base(Forge::gitLab, u"https://gitlab.com"_s), u"https://gitlab.com/api/v4"_s);
    EXPECT_EQ(base(Forge::gitea, u"https://codeberg.org:3000"_s), u"https://codeberg.org:3000/api/v1"_s);

    EXPECT_EQ(ForgeClient::guessForge(u"GitLab.example.com"_s), Forge::gitLab);
    EXPECT_EQ(ForgeClient::guessForge(u"gitea.example.com"_s), Forge::gitea);
    EXPECT_EQ(ForgeClient::guessForge(u"forgejo.example.com"_s), Forge::gitea);
    EXPECT_EQ(ForgeClient::guessForge(u"github.com"_s), Forge::gitHub);
    // "gitlab" wins over "github" when a name has both.
    EXPECT_EQ(ForgeClient::guessForge(u"github-mirror.gitlab.example"_s), Forge::gitLab);
    EXPECT_EQ(ForgeClient::guessForge(u"code.example.org"_s), std::nullopt);
}

TEST(ForgeClient, DetectsSelfHostedForgesByProbingAndCachesThem)
{
    ForgeTestServer gitlab;
    gitlab.serveGitLab();
    ForgeClient client;
    const QString link = gitlab.url(u"/team/tools/exporter.git"_s);

    const ForgeResult<Repository> first = run<Repository>([&](auto done) { client.resolve(link, done); });
    ASSERT_TRUE(first.ok());
    EXPECT_EQ(first.value().forge, Forge::gitLab);
    // No forge word in 127.0.0.1: GitHub is probed before GitLab, Gitea never.
    ASSERT_EQ(gitlab.requests().size(), 2);
    EXPECT_EQ(gitlab.requests()[0].target, "/api/v3/meta");
    EXPECT_EQ(gitlab.requests()[1].target, "/api/v4/version");

    const ForgeResult<Repository> second = run<Repository>([&](auto done) { client.resolve(link, done); });
    ASSERT_TRUE(second.ok());
    EXPECT_EQ(second.value(), first.value());
    EXPECT_EQ(gitlab.requests().size(), 2) << "the cached host is not probed again";

    ForgeTestServer gitea;
    gitea.serveGitea();
    const ForgeResult<Forge> giteaForge =
        run<Forge>([&](auto done) { client.detectForge(QUrl(gitea.origin()), done); });
    ASSERT_TRUE(giteaForge.ok());
    EXPECT_EQ(giteaForge.value(), Forge::gitea);
    EXPECT_EQ(gitea.count("/api/v1/version"), 1);

    // Two checks starting together share one round of probes.
    ForgeTestServer github;
    github.serveGitHub();
    int answered = 0;
    QEventLoop loop;
    for (int i = 0; i < 2; ++i) {
        client.detectForge(QUrl(github.origin()), [&](const ForgeResult<Forge>& result) {
            EXPECT_TRUE(result.ok() && result.value() == Forge::gitHub);
            if (++answered == 2)
                loop.quit();
        });
    }
    loop.exec();
    EXPECT_EQ(github.count("/api/v3/meta"), 1);
}

TEST(ForgeClient, ProbingFailures)
{
    ForgeClient client;
    ForgeTestServer nothing;
    const ForgeResult<Repository> unknown =
        run<Repository>([&](auto done) { client.resolve(nothing.url(u"/a/b"_s), done); });
    ASSERT_FALSE(unknown.ok());
    EXPECT_EQ(unknown.error().message(), u"Could not determine the git forge for this URL."_s);
    EXPECT_EQ(nothing.requests().size(), 3);
    EXPECT_FALSE(client.cachedForge(QUrl(nothing.origin()))) << "a failed detection is tried again next time";

    const ForgeResult<Repository> invalid =
        run<Repository>([&](auto done) { client.resolve(u"acme/repo"_s, done); });
    ASSERT_FALSE(invalid.ok());
    EXPECT_EQ(invalid.error().message(), u"The URL is not a valid repository link."_s);

    // gitlab.com refuses /version without a token, in its own words.
    ForgeTestServer locked;
    locked.route("/api/v4/version",
                 ForgeTestServer::Response::json(R"({"message":"401 Unauthorized"})", 401));
    const ForgeResult<Forge> gitlab =
        run<Forge>([&](auto done) { client.detectForge(QUrl(locked.origin()), done); });
    ASSERT_TRUE(gitlab.ok());
    EXPECT_EQ(gitlab.value(), Forge::gitLab);
}

TEST(ForgeClient, ReadsGitHubReleasesAndCommits)
{
    ForgeTestServer server;
    server.route("/api/v3/repos/acme/bank-sync/releases/latest", ForgeTestServer::Response::json(R"({
        "tag_name": "v1.10.0", "name": "Autumn", "zipball_url": "https://example.test/zip/v1.10.0",
        "assets": [{"name": "notes.txt", "browser_download_url": "https://example.test/notes.txt"},
                   {"name": "Bank Sync.ledraplugin.zip", "browser_download_url": "https://example.test/p.zip"}],
        "unknown": {"ignored": true}})"));
    server.route("/api/v3/repos/acme/bank-sync/commits?per_page=1", ForgeTestServer::Response::json(R"([
        {"sha": "9f1c2e", "commit": {"message": "Fix totals", "author": {"date": "2025-03-14T09:30:00Z"}}},
        {"sha": "older"}])"));
    server.route("/api/v3/repos/acme/bank-sync/contents/lib/util.js?ref=v1.10.0",
                 ForgeTestServer::Response::json("exports.x = 1;"));
    ForgeClient client;
    const Repository repository = repositoryAt(server, Forge::gitHub, u"/acme/bank-sync"_s);

    const auto release =
        run<std::optional<Release>>([&](auto done) { client.latestRelease(repository, done); });
    ASSERT_TRUE(release.ok() && release.value());
    EXPECT_EQ(release.value()->tag, u"v1.10.0"_s);
    EXPECT_EQ(release.value()->name, u"Autumn"_s);
    ASSERT_EQ(release.value()->assets.size(), 2);
    EXPECT_EQ(release.value()->assets[1].name, u"Bank Sync.ledraplugin.zip"_s);
    EXPECT_EQ(release.value()->assets[1].url, QUrl(u"https://example.test/p.zip"_s));
    EXPECT_EQ(release.value()->sourceArchiveURL, QUrl(u"https://example.test/zip/v1.10.0"_s));
    EXPECT_EQ(server.requests().last().headers.value("accept"), "application/vnd.github+json");

    const auto commit = run<std::optional<Commit>>([&](auto done) { client.latestCommit(repository, done); });
    ASSERT_TRUE(commit.ok() && commit.value());
    EXPECT_EQ(commit.value()->sha, u"9f1c2e"_s);
    EXPECT_EQ(commit.value()->message, u"Fix totals"_s);
    EXPECT_EQ(commit.value()->date, QDateTime::fromString(u"2025-03-14T09:30:00Z"_s, Qt::ISODate));
    EXPECT_EQ(commit.value()->sourceArchiveURL,
              QUrl(server.url(u"/api/v3/repos/acme/bank-sync/zipball/9f1c2e"_s)));

    const auto file =
        run<QByteArray>([&](auto done) { client.rawFile(repository, u"lib/util.js"_s, u"v1.10.0"_s, done); });
    ASSERT_TRUE(file.ok());
    EXPECT_EQ(file.value(), "exports.x = 1;");
    EXPECT_EQ(server.requests().last().headers.value("accept"), "application/vnd.github.raw");
}

TEST(ForgeClient, ReadsGitLabProjectsWithSubgroups)
{
    ForgeTestServer server;
    const QByteArray project = "/api/v4/projects/team%2Ftools%2Fexporter";
    server.route(project + "/releases/permalink/latest", ForgeTestServer::Response::json(R"({
        "tag_name": "2.0.1", "name": null,
        "assets": {"links": [{"name": "exporter.ledraplugin.zip", "url": "https://example.test/other",
                              "direct_asset_url": "https://example.test/direct.zip"},
                             {"name": "checksums", "url": "https://example.test/sums"}],
                   "sources": [{"format": "tar.gz", "url": "https://example.test/src.tar.gz"},
                               {"format": "zip", "url": "https://example.test/src.zip"}]}})"));
    server.route(project + "/repository/commits?per_page=1", ForgeTestServer::Response::json(R"([
        {"id": "c0ffee", "created_at": "2025-01-02T10:00:00.000+01:00", "message": "Initial"}])"));
    ForgeClient client;
    const Repository repository = repositoryAt(server, Forge::gitLab, u"/team/tools/exporter.git"_s);

    const auto release =
        run<std::optional<Release>>([&](auto done) { client.latestRelease(repository, done); });
    ASSERT_TRUE(release.ok() && release.value());
    EXPECT_EQ(release.value()->tag, u"2.0.1"_s);
    EXPECT_EQ(release.value()->name, std::nullopt);
    ASSERT_EQ(release.value()->assets.size(), 2);
    EXPECT_EQ(release.value()->assets[0].url, QUrl(u"https://example.test/direct.zip"_s));
    EXPECT_EQ(release.value()->assets[1].url, QUrl(u"https://example.test/sums"_s));
    EXPECT_EQ(release.value()->sourceArchiveURL, QUrl(u"https://example.test/src.zip"_s));

    const auto commit = run<std::optional<Commit>>([&](auto done) { client.latestCommit(repository, done); });
    ASSERT_TRUE(commit.ok() && commit.value());
    EXPECT_EQ(commit.value()->sha, u"c0ffee"_s);
    EXPECT_EQ(commit.value()->date->toUTC(), QDateTime(QDate(2025, 1, 2), QTime(9, 0), Qt::UTC));
    EXPECT_EQ(
        commit.value()->sourceArchiveURL.toEncoded(),
        server.url(u"/api/v4/projects/team%2Ftools%2Fexporter/repository/archive.zip?sha=c0ffee"_s).toUtf8());
    for (const ForgeTestServer::Request& request : server.requests())
        EXPECT_TRUE(request.target.startsWith(project + '/')) << request.target.constData();
}

TEST(ForgeClient, GiteaRepositoryWithCommitsOnly)
{
    ForgeTestServer server;
    server.route("/api/v1/repos/acme/csv-import/commits?limit=1", ForgeTestServer::Response::json(R"([
        {"sha": "5e3d", "created": "2025-02-01T12:00:00Z",
         "commit": {"message": "Import", "author": {"date": "2024-12-31T00:00:00Z"}}}])"));
    ForgeClient client;
    const Repository repository = repositoryAt(server, Forge::gitea, u"/acme/csv-import"_s);

    const auto release =
        run<std::optional<Release>>([&](auto done) { client.latestRelease(repository, done); });
    ASSERT_TRUE(release.ok());
    EXPECT_FALSE(release.value()) << "404 on the latest release means there is none";

    const auto commit = run<std::optional<Commit>>([&](auto done) { client.latestCommit(repository, done); });
    ASSERT_TRUE(commit.ok() && commit.value());
    EXPECT_EQ(commit.value()->date, QDateTime::fromString(u"2025-02-01T12:00:00Z"_s, Qt::ISODate));
    EXPECT_EQ(commit.value()->sourceArchiveURL,
              QUrl(server.url(u"/api/v1/repos/acme/csv-import/archive/5e3d.zip"_s)));

    ForgeTestServer empty;
    empty.route("/api/v1/repos/acme/csv-import/commits?limit=1", ForgeTestServer::Response::json("[]"));
    const auto none = run<std::optional<Commit>>([&](auto done) {
        client.latestCommit(repositoryAt(empty, Forge::gitea, u"/acme/csv-import"_s), done);
    });
    ASSERT_TRUE(none.ok());
    EXPECT_FALSE(none.value());
}

TEST(ForgeClient, RateLimitsAndUnexpectedResponses)
{
    ScopedClock clock(QDateTime(QDate(2025, 6, 1), QTime(12, 0), Qt::UTC));
    const QByteArray resetIn90s = QByteArray::number(Clock::now().toSecsSinceEpoch() + 90);
    const QByteArray resetPast = QByteArray::number(Clock::now().toSecsSinceEpoch() - 5);
    using Response = ForgeTestServer::Response;
    struct Case
    {
        const char* label;
        Response response;
        QString message;
    };
    const QList<Case> cases{
        {"429 with Retry-After",
         {429, {{"Retry-After", "120"}}, {}},
         u"Rate limit exceeded; retry in about 120 seconds."_s},
        {"429 with a reset time",
         {429, {{"X-RateLimit-Reset", resetIn90s}}, {}},
         u"Rate limit exceeded; retry in about 90 seconds."_s},
        {"403 with nothing remaining",
         {403, {{"X-RateLimit-Remaining", "0"}, {"X-RateLimit-Reset", resetIn90s}}, {}},
         u"Rate limit exceeded; retry in about 90 seconds."_s},
        {"403 with Retry-After before the reset",
         {403, {{"x-ratelimit-remaining", "0"}, {"retry-after", "7"}, {"x-ratelimit-reset", resetIn90s}}, {}},
         u"Rate limit exceeded; retry in about 7 seconds."_s},
        {"reset time already past",
         {429, {{"X-RateLimit-Reset", resetPast}}, {}},
         u"Rate limit exceeded; try again later."_s},
        {"unparsable Retry-After",
         {429, {{"Retry-After", "Wed, 21 Oct 2025 07:28:00 GMT"}}, {}},
         u"Rate limit exceeded; try again later."_s},
        {"403 with requests remaining",
         {403, {{"X-RateLimit-Remaining", "12"}}, {}},
         u"The forge returned an unexpected response."_s},
        {"server error", Response::json(R"({"message":"boom"})", 500),
         u"The forge returned an unexpected response."_s},
        {"not JSON", Response::json("<html>maintenance</html>"),
         u"The forge returned an unexpected response."_s},
        {"release without a tag", Response::json(R"({"name":"x"})"),
         u"The forge returned an unexpected response."_s},
    };
    ForgeClient client;
    for (const Case& c : cases) {
        ForgeTestServer server;
        server.route("/api/v3/repos/acme/tool/releases/latest", c.response);
        const auto result = run<std::optional<Release>>([&](auto done) {
            client.latestRelease(repositoryAt(server, Forge::gitHub, u"/acme/tool"_s), done);
        });
        ASSERT_FALSE(result.ok()) << c.label;
        EXPECT_EQ(result.error().message(), c.message) << c.label;
    }
}

TEST(ForgeClient, DownloadsFollowRedirectsWithinLimits)
{
    QTemporaryDir folder;
    const QString target = folder.filePath(u"archive.zip"_s);
    ForgeTestServer server;
    const QByteArray archive = makeZip({{u"a.txt"_s, "hello"}});
    server.route("/api/v3/repos/acme/tool/zipball/v1",
                 ForgeTestServer::Response::redirect(server.url(u"/codeload"_s)));
    server.route("/codeload", {200, {{"Content-Type", "application/zip"}}, archive});
    ForgeClient client;

    auto download = [&](const QString& path) {
        return run<Done>([&](auto done) { client.download(QUrl(server.url(path)), target, done); });
    };
    ASSERT_TRUE(download(u"/api/v3/repos/acme/tool/zipball/v1"_s).ok());
    QFile file(target);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), archive);
    file.close();

    // Over the limit, announced or not: refused, and no partial file is left.
    client.session().setDownloadLimit(archive.size() - 1);
    server.route("/unannounced", {200, {}, archive, false, true});
    for (const QString& path : {u"/codeload"_s, u"/unannounced"_s}) {
        const ForgeResult<Done> tooLarge = download(path);
        ASSERT_FALSE(tooLarge.ok()) << qPrintable(path);
        EXPECT_EQ(tooLarge.error().kind(), ForgeError::Kind::downloadTooLarge);
        EXPECT_FALSE(QFile::exists(target));
    }
    client.session().setDownloadLimit(ForgeSession::defaultDownloadLimit);

    // Only http and https are followed.
    server.route("/elsewhere", ForgeTestServer::Response::redirect(u"file:///etc/passwd"_s));
    EXPECT_FALSE(download(u"/elsewhere"_s).ok());

    // A rate-limited download says so.
    server.route("/limited", {429, {{"Retry-After", "30"}}, "slow down"});
    const ForgeResult<Done> limited = download(u"/limited"_s);
    ASSERT_FALSE(limited.ok());
    EXPECT_EQ(limited.error(), ForgeError::rateLimited(30));

    // A server that never answers is given up after the timeout.
    server.route("/hang", {200, {}, {}, true});
    client.session().setTimeout(300);
    EXPECT_EQ(download(u"/hang"_s).error(), ForgeError::invalidResponse());
}

TEST(ForgeError, MessagesFollowTheInterfaceLanguage)
{
    Strings::setInterfaceLanguage(Language::german);
    EXPECT_EQ(ForgeError::rateLimited(120).message(),
              u"Anfragelimit überschritten; neuer Versuch in etwa 120 Sekunden."_s);
    Strings::setInterfaceLanguage(Language::english);
    EXPECT_EQ(ForgeError::rateLimited(120).message(), u"Rate limit exceeded; retry in about 120 seconds."_s);
    Strings::setInterfaceLanguage(std::nullopt);
}
