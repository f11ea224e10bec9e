#pragma once

#include "storage/InvoiceManager.h"
#include "storage/ProfileManager.h"

#include <QSettings>

#include <memory>

// The user's data folder as the desktop application sees it: settings in the user's config
// folder, data in the application data location (XDG variables are honoured).
class DataStores
{
public:
    DataStores();

    ProfileManager& profiles() { return *m_profiles; }
    InvoiceManager& invoices() { return *m_invoices; }
    QSettings& settings() { return m_settings; }
    const Profile& activeProfile() const { return *m_profiles->activeProfile(); }

    // An invoice of the active profile by id, unambiguous id prefix or displayed number.
    // Throws CliError naming the argument and the problem.
    const Invoice& find(const QString& reference) const;

private:
    QSettings m_settings;
    std::unique_ptr<ProfileManager> m_profiles;
    std::unique_ptr<InvoiceManager> m_invoices;
};

// Opened on first use, so commands that don't touch the data folder never create it.
DataStores& dataStores();
