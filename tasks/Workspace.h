#pragma once

#include "reminders/ReminderManager.h"
#include "render/StylingManager.h"
#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"

#include <QObject>
#include <QSettings>

#include <memory>

// The user's data as both front ends see it: the profile store over the data folder, the
// invoice, reminder and styling stores of the active profile, wired so that they follow it.
class Workspace : public QObject
{
    Q_OBJECT
public:
    // `settings` outlives the workspace; `defaultDataFolder` is where data lives unless the
    // user chose another folder (ProfileManager::defaultDataFolderPath() for real use).
    Workspace(QSettings& settings, const QString& defaultDataFolder, QObject* parent = nullptr);
    ~Workspace() override;

    // The user's settings: ~/.config/Ledra/Ledra.conf (XDG variables are honoured).
    static std::unique_ptr<QSettings> userSettings();

    QSettings& settings() { return m_settings; }
    ProfileManager& profiles() { return *m_profiles; }
    InvoiceManager& invoices() { return *m_invoices; }
    const InvoiceManager& invoices() const { return *m_invoices; }
    // Loaded on first use: commands that never touch reminders don't read their files.
    ReminderManager& reminders();
    // Loaded on first use too: a missing styling.json is written with the defaults then.
    StylingManager& styling();
    const Profile& activeProfile() const { return *m_profiles->activeProfile(); }

    // An invoice of the active profile by id, unambiguous id prefix or displayed number.
    // Throws TaskError naming the reference and the problem.
    const Invoice& find(const QString& reference) const;

    // The invoices a document of `invoice` names (the one a cancellation cancels, the quote an
    // invoice came from); empty when it refers to none.
    QList<Invoice> related(const Invoice& invoice) const;

    // The styling of the active profile; defaults for its country when there is none yet.
    Styling activeStyling();

Q_SIGNALS:
    // The invoice, reminder and styling stores now show another profile.
    void activeProfileSwitched();

private:
    void followActiveProfile();

    QSettings& m_settings;
    std::unique_ptr<ProfileManager> m_profiles;
    std::unique_ptr<InvoiceManager> m_invoices;
    std::unique_ptr<ReminderManager> m_reminders;
    std::unique_ptr<StylingManager> m_styling;
    QUuid m_shownProfile;
};
