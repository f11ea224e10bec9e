#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <optional>
#include <utility>
#include <variant>

// The three forge families whose REST interfaces the plugin updater reads. Gitea covers its
// Forgejo offspring, which speaks the same API.
enum class Forge
{
    gitHub,
    gitLab,
    gitea
};

// "gitHub", "gitLab", "gitea".
QString forgeText(Forge forge);

// A repository link taken apart. `origin` is scheme, host and port; everything between the
// first and the last path segment is a GitLab subgroup.
struct Repository
{
    Forge forge = Forge::gitHub;
    QUrl origin;
    QString owner;
    QString name;
    QStringList subgroups;

    // Needs an http(s) scheme, a host and at least two path segments; a trailing ".git" is
    // dropped from the name. The forge is not known from the link alone: `forge` is left at
    // the given value until detection (ForgeClient::resolve) fills it in.
    static std::optional<Repository> parse(const QString& link, Forge forge = Forge::gitHub);

    // Owner, subgroups and name joined with "/" (GitLab's project path).
    QString fullPath() const;

    bool operator==(const Repository&) const = default;
};

struct Release
{
    struct Asset
    {
        QString name;
        QUrl url;
    };

    QString tag;
    std::optional<QString> name;
    QList<Asset> assets;
    QUrl sourceArchiveURL;
};

struct Commit
{
    QString sha;
    std::optional<QDateTime> date;
    std::optional<QString> message;
    QUrl sourceArchiveURL;
};

class ForgeError
{
public:
    enum class Kind
    {
        rateLimited,
        invalidURL,
        unknownForge,
        invalidResponse,
        // Beyond the four cases users know from the forge itself: a download that exceeds the
        // size limit is refused rather than filling the disk.
        downloadTooLarge,
    };

    static ForgeError rateLimited(std::optional<qint64> retryAfterSeconds)
    {
        return ForgeError(Kind::rateLimited, retryAfterSeconds);
    }
    static ForgeError invalidURL() { return ForgeError(Kind::invalidURL); }
    static ForgeError unknownForge() { return ForgeError(Kind::unknownForge); }
    static ForgeError invalidResponse() { return ForgeError(Kind::invalidResponse); }
    static ForgeError downloadTooLarge() { return ForgeError(Kind::downloadTooLarge); }

    Kind kind() const { return m_kind; }
    // Only for `rateLimited`, and only when the forge said how long to wait.
    std::optional<qint64> retryAfter() const { return m_retryAfter; }
    // The localised description shown to the user.
    QString message() const;

    bool operator==(const ForgeError&) const = default;

private:
    explicit ForgeError(Kind kind, std::optional<qint64> retryAfter = std::nullopt)
        : m_kind(kind), m_retryAfter(retryAfter)
    {}

    Kind m_kind;
    std::optional<qint64> m_retryAfter;
};

// The outcome of a forge operation: a value or the error that prevented it.
template <typename T>
class ForgeResult
{
public:
    ForgeResult(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    ForgeResult(ForgeError error) : m_state(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }
    const T& value() const { return std::get<0>(m_state); }
    T& value() { return std::get<0>(m_state); }
    const ForgeError& error() const { return std::get<1>(m_state); }

private:
    std::variant<T, ForgeError> m_state;
};

// For operations that deliver nothing but success.
struct Done
{};

// Every asynchronous forge operation reports once, on the thread of the client.
template <typename T>
using ForgeCallback = std::function<void(ForgeResult<T>)>;
