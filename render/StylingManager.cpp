#include "render/StylingManager.h"

#include "render/WebFontManager.h"
#include "util/Clock.h"
#include "util/JsonReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QSaveFile>
#include <QXmlStreamReader>

using namespace Qt::Literals::StringLiterals;

namespace {

const QStringList logoExtensions{u"svg"_s, u"png"_s, u"jpg"_s, u"jpeg"_s, u"webp"_s};

} // namespace

StylingManager::StylingManager(const QString& profileFolder, QObject* parent) : QObject(parent)
{
    setProfileFolder(profileFolder);
}

QString StylingManager::invalidLogoTypeText()
{
    return u"Invalid file type. Only SVG, PNG, JPG, JPEG, and WebP files are supported for logos."_s;
}

QString StylingManager::unreadableLogoText()
{
    return u"The file is not a readable image."_s;
}

bool StylingManager::isReadableLogo(const QString& path)
{
    const QFileInfo info(path);
    const QString suffix = info.suffix().toLower();
    if (!logoExtensions.contains(suffix))
        return false;
    if (suffix == u"svg") {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return false;
        QXmlStreamReader xml(&file);
        while (!xml.atEnd())
            if (xml.readNext() == QXmlStreamReader::StartElement)
                return xml.name() == u"svg";
        return false;
    }
    // Decoding the whole image also catches a renamed or truncated file.
    QImageReader reader(path);
    reader.setDecideFormatFromContent(true);
    return !reader.read().isNull();
}

QString StylingManager::stylingPath() const
{
    return m_folder.isEmpty() ? QString() : QDir(m_folder).filePath(u"styling.json"_s);
}

QString StylingManager::cssPath() const
{
    const QFileInfoList files = QDir(m_folder).entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo& file : files)
        if (file.suffix().toLower() == u"css")
            return file.absoluteFilePath();
    return {};
}

QString StylingManager::logoPath() const
{
    const QFileInfoList files = QDir(m_folder).entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo& file : files)
        if (logoExtensions.contains(file.suffix().toLower()))
            return file.absoluteFilePath();
    return {};
}

void StylingManager::setProfileFolder(const QString& folder)
{
    stopWatching();
    m_folder = folder;
    load();
    startWatching();
}

void StylingManager::load()
{
    if (m_folder.isEmpty()) {
        m_styling.reset();
        Q_EMIT stylingChanged();
        return;
    }
    bool needsSave = false;
    QFile file(stylingPath());
    if (file.open(QIODevice::ReadOnly)) {
        try {
            m_styling = StylingJson::decode(file.readAll());
        } catch (const JsonDecodeError& error) {
            qWarning("StylingManager: %s: %s; using the default styling", qPrintable(stylingPath()),
                     qPrintable(error.message()));
            m_styling = Styling::makeNew();
            needsSave = true;
        }
    } else {
        m_styling = Styling::makeNew();
        needsSave = true;
    }
    if (m_fonts && resolveFontFaces(*m_fonts))
        needsSave = true;

    m_styling->css.reset();
    if (const QString css = cssPath(); !css.isEmpty()) {
        QFile cssFile(css);
        if (cssFile.open(QIODevice::ReadOnly))
            m_styling->css = QString::fromUtf8(cssFile.readAll());
        else
            qWarning("Error loading CSS content: %s", qPrintable(cssFile.errorString()));
    }
    if (const QString logo = logoPath(); !logo.isEmpty())
        m_styling->logo = logo;
    else
        m_styling->logo.reset();

    if (needsSave)
        save();
    m_lastUpdated = Clock::now();
    Q_EMIT stylingChanged();
    Q_EMIT lastUpdatedChanged();
    if (m_watcher)
        startWatching(); // a replaced file needs to be watched anew
}

bool StylingManager::save()
{
    if (!m_styling || m_folder.isEmpty())
        return false;
    QSaveFile file(stylingPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(StylingJson::encode(*m_styling)) < 0 ||
        !file.commit()) {
        qWarning("StylingManager: cannot write %s: %s", qPrintable(stylingPath()),
                 qPrintable(file.errorString()));
        return false;
    }
    return true;
}

bool StylingManager::setStyling(const Styling& styling)
{
    if (m_folder.isEmpty())
        return false;
    m_styling = styling;
    Q_EMIT stylingChanged();
    return save();
}

std::optional<StylingError> StylingManager::setLogo(const QString& file)
{
    const QFileInfo source(file);
    if (!logoExtensions.contains(source.suffix().toLower()))
        return StylingError{u"StylingManager"_s, 2, invalidLogoTypeText()};
    if (m_folder.isEmpty() || !m_styling)
        return StylingError{u"StylingManager"_s, 1, u"No active profile selected"_s};
    const QString target = QDir(m_folder).filePath(source.fileName());
    QFile input(file);
    if (QFileInfo::exists(target))
        return StylingError{u"QFile"_s, int(QFileDevice::CopyError),
                            u"%1: a file of that name is already in the profile folder"_s.arg(target)};
    if (!input.copy(target))
        return StylingError{u"QFile"_s, int(input.error()), u"%1: %2"_s.arg(file, input.errorString())};
    m_styling->logo = target;
    Q_EMIT stylingChanged();
    return std::nullopt;
}

std::optional<StylingError> StylingManager::replaceLogo(const QString& file)
{
    if (!logoExtensions.contains(QFileInfo(file).suffix().toLower()))
        return StylingError{u"StylingManager"_s, 2, invalidLogoTypeText()};
    if (m_folder.isEmpty() || !m_styling)
        return StylingError{u"StylingManager"_s, 1, u"No active profile selected"_s};
    if (!isReadableLogo(file))
        return StylingError{u"StylingManager"_s, 3, unreadableLogoText()};
    const QString old = logoPath();
    if (!old.isEmpty() && QFileInfo(old) == QFileInfo(file))
        return std::nullopt;
    // Set aside rather than deleted, so a failed copy leaves the old logo in place.
    const QString aside = old.isEmpty() ? QString() : old + u".previous"_s;
    if (!aside.isEmpty()) {
        QFile::remove(aside);
        if (!QFile::rename(old, aside))
            return StylingError{u"QFile"_s, int(QFileDevice::RenameError),
                                u"%1: cannot be replaced"_s.arg(old)};
    }
    if (auto error = setLogo(file)) {
        if (!aside.isEmpty())
            QFile::rename(aside, old);
        return error;
    }
    if (!aside.isEmpty())
        QFile::remove(aside);
    return std::nullopt;
}

bool StylingManager::removeLogo()
{
    if (!m_styling)
        return false;
    const QString old = logoPath();
    if (!old.isEmpty() && !QFile::remove(old))
        return false;
    m_styling->logo.reset();
    Q_EMIT stylingChanged();
    return true;
}

bool StylingManager::setCss(const QString& css)
{
    if (m_folder.isEmpty() || !m_styling)
        return false;
    const QString existing = cssPath();
    if (css.trimmed().isEmpty()) {
        if (!existing.isEmpty() && !QFile::remove(existing))
            return false;
        m_styling->css.reset();
    } else {
        QSaveFile file(existing.isEmpty() ? QDir(m_folder).filePath(u"custom.css"_s) : existing);
        if (!file.open(QIODevice::WriteOnly) || file.write(css.toUtf8()) < 0 || !file.commit()) {
            qWarning("StylingManager: cannot write %s: %s", qPrintable(file.fileName()),
                     qPrintable(file.errorString()));
            return false;
        }
        m_styling->css = css;
        if (existing.isEmpty() && m_watcher)
            startWatching(); // the new sheet is watched from now on
    }
    Q_EMIT stylingChanged();
    return true;
}

bool StylingManager::resolveFontFaces(const WebFontManager& fonts)
{
    if (!m_styling || !fonts.isLoaded())
        return false;
    bool changed = false;
    auto resolve = [&](const QString& family, const QString& weight, std::optional<QString>& face) {
        if (face && !face->isEmpty())
            return;
        if (const auto cut = fonts.face(family, weight)) {
            face = cut->faceID;
            changed = true;
        }
    };
    resolve(m_styling->headlineFont, m_styling->headlineFontWeight, m_styling->headlineFontFace);
    resolve(m_styling->primaryFont, m_styling->primaryFontWeight, m_styling->primaryFontFace);
    resolve(m_styling->secondaryFont, m_styling->secondaryFontWeight, m_styling->secondaryFontFace);
    resolve(m_styling->labelFont, m_styling->labelFontWeight, m_styling->labelFontFace);
    return changed;
}

void StylingManager::observe(WebFontManager& fonts)
{
    m_fonts = &fonts;
    connect(&fonts, &WebFontManager::fontCatalogDidLoad, this, [this] {
        if (m_fonts && resolveFontFaces(*m_fonts)) {
            save();
            Q_EMIT stylingChanged();
        }
    });
    if (resolveFontFaces(fonts)) {
        save();
        Q_EMIT stylingChanged();
    }
}

void StylingManager::startWatching()
{
    if (m_folder.isEmpty())
        return;
    if (!m_watcher) {
        m_watcher = new QFileSystemWatcher(this);
        // Editors replace files on save (write, rename): either way the file is read anew.
        connect(m_watcher, &QFileSystemWatcher::fileChanged, this, [this] { load(); });
    }
    if (const QStringList files = m_watcher->files(); !files.isEmpty())
        m_watcher->removePaths(files);
    QStringList paths{stylingPath()};
    if (const QString css = cssPath(); !css.isEmpty())
        paths.append(css);
    for (const QString& path : paths)
        if (QFileInfo::exists(path))
            m_watcher->addPath(path);
}

void StylingManager::stopWatching()
{
    delete m_watcher;
    m_watcher = nullptr;
}
