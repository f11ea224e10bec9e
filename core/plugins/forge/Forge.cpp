#include "plugins/forge/Forge.h"

#include "l10n/Strings.h"

using namespace Qt::Literals::StringLiterals;

QString forgeText(Forge forge)
{
    switch (forge) {
    case Forge::gitHub:
        return u"gitHub"_s;
    case Forge::gitLab:
        return u"gitLab"_s;
    case Forge::gitea:
        return u"gitea"_s;
    }
    return {};
}

std::optional<Repository> Repository::parse(const QString& link, Forge forge)
{
    const QUrl url(link.trimmed(), QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty())
        return std::nullopt;
    const QString scheme = url.scheme().toLower();
    if (scheme != u"https" && scheme != u"http")
        return std::nullopt;
    QStringList segments = url.path(QUrl::FullyDecoded).split(u'/', Qt::SkipEmptyParts);
    if (segments.size() < 2)
        return std::nullopt;
    QString name = segments.takeLast();
    if (name.endsWith(u".git"_s, Qt::CaseInsensitive))
        name.chop(4);
    if (name.isEmpty())
        return std::nullopt;

    Repository repository;
    repository.forge = forge;
    repository.origin.setScheme(scheme);
    repository.origin.setHost(url.host());
    repository.origin.setPort(url.port());
    repository.owner = segments.takeFirst();
    repository.name = name;
    repository.subgroups = segments;
    return repository;
}

QString Repository::fullPath() const
{
    QStringList parts{owner};
    parts += subgroups;
    parts.append(name);
    return parts.join(u'/');
}

QString ForgeError::message() const
{
    switch (m_kind) {
    case Kind::rateLimited:
        if (m_retryAfter)
            return Strings::ui(u"Rate limit exceeded; retry in about %1 seconds.").arg(*m_retryAfter);
        return Strings::ui(u"Rate limit exceeded; try again later.");
    case Kind::invalidURL:
        return Strings::ui(u"The URL is not a valid repository link.");
    case Kind::unknownForge:
        return Strings::ui(u"Could not determine the git forge for this URL.");
    case Kind::invalidResponse:
        return Strings::ui(u"The forge returned an unexpected response.");
    case Kind::downloadTooLarge:
        return Strings::ui(u"The download is larger than the allowed size.");
    }
    return {};
}
