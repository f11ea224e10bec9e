#include "Commands.h"
#include "JsonEdit.h"

#include "exchange/ProfileExchange.h"
#include "model/ProfileJson.h"
#include "util/Clock.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class ProfileCommand : public ActionCommand
{
public:
    QString name() const override { return u"profile"_s; }
    QString summary() const override
    {
        return u"List, create, rename, delete, switch and edit sender profiles."_s;
    }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"json"_s, u"Machine-readable output (list, show)."_s});
        parser.addOption({u"all"_s, u"export: every profile in one file."_s});
        parser.addOption({{u"o"_s, u"output"_s},
                          u"export: the Ledra Data file to write (default: the suggested name in the current "
                          u"folder)."_s,
                          u"FILE"_s});
        parser.addPositionalArgument(
            u"action"_s,
            u"list | new NAME | rename OLD NEW | delete NAME | use NAME | show | "
            u"set KEY VALUE (KEY as in profile.json, e.g. businessName, address.city, "
            u"vatPercentage, eInvoiceFormat) | export NAME|--all [-o FILE] | import FILE.ledradata"_s,
            u"ACTION [ARGS...]"_s);
    }

    std::optional<int> runAction(const Action& action, const QCommandLineParser& parser) override
    {
        const bool json = parser.isSet(u"json"_s);
        ProfileManager& profiles = workspace().profiles();
        if (action == u"list") {
            action.expect(0);
            return list(profiles, json);
        }
        if (action == u"show") {
            action.expect(0);
            return show(*profiles.activeProfile(), json);
        }
        if (action == u"new") {
            action.expect(1);
            check(profiles.createProfile(action.args[0]));
            out() << "Created profile \"" << action.args[0].trimmed() << "\"\n";
            return ExitCode::ok;
        }
        if (action == u"rename") {
            action.expect(2);
            check(profiles.renameProfile(named(profiles, action.args[0]).id, action.args[1]));
            out() << "Renamed \"" << action.args[0] << "\" to \"" << action.args[1].trimmed() << "\"\n";
            return ExitCode::ok;
        }
        if (action == u"delete") {
            action.expect(1);
            check(profiles.deleteProfile(named(profiles, action.args[0]).id));
            out() << "Deleted profile \"" << action.args[0]
                  << "\"; active: " << profiles.activeProfile()->displayName() << '\n';
            return ExitCode::ok;
        }
        if (action == u"use") {
            action.expect(1);
            profiles.setActiveProfile(named(profiles, action.args[0]).id);
            out() << "Active profile: " << profiles.activeProfile()->displayName() << '\n';
            return ExitCode::ok;
        }
        if (action == u"export") {
            QList<Profile> chosen;
            QString file;
            if (parser.isSet(u"all"_s)) {
                action.expect(0);
                chosen = profiles.profiles();
                file = ProfileExporter::suggestedAllProfilesFileName(Clock::today());
            } else {
                action.expect(1);
                chosen = {named(profiles, action.args[0])};
                file = ProfileExporter::suggestedFileName(chosen.first(), Clock::today());
            }
            if (parser.isSet(u"output"_s))
                file = parser.value(u"output"_s);
            try {
                ProfileExporter(profiles).writeArchive(chosen, file);
            } catch (const ProfileExportError& error) {
                throw CliError(u"%1: Export Failed: %2"_s.arg(file, error.message()));
            }
            out() << file << '\n';
            return ExitCode::ok;
        }
        if (action == u"import") {
            action.expect(1);
            return importDataFile(u"profile"_s, action.args[0], u"Imported"_s);
        }
        if (action == u"set") {
            action.expect(2);
            const Profile& active = *profiles.activeProfile();
            Profile changed;
            try {
                changed = ProfileJson::decode(
                    setJsonField(ProfileJson::encode(active), action.args[0], action.args[1]));
            } catch (const JsonDecodeError& error) {
                throw CliError(error.message());
            }
            changed.profileName = active.profileName;
            check(profiles.saveProfile(changed));
            out() << action.args[0] << " = " << action.args[1] << '\n';
            return ExitCode::ok;
        }
        return std::nullopt;
    }

private:
    static void check(const std::optional<QString>& error)
    {
        if (error)
            throw CliError(*error);
    }

    static const Profile& named(const ProfileManager& profiles, const QString& name)
    {
        if (const Profile* profile = profiles.profileNamed(name.trimmed()))
            return *profile;
        throw CliError(QStringLiteral("no profile named \"%1\"").arg(name));
    }

    static int list(const ProfileManager& profiles, bool json)
    {
        const Profile* active = profiles.activeProfile();
        if (json) {
            JsonWriter w;
            w.beginArray();
            for (const Profile& p : profiles.profiles()) {
                w.beginObject();
                w.field("name"_L1, p.displayName());
                w.field("id"_L1, p.id);
                w.field("businessName"_L1, p.businessName);
                w.field("active"_L1, active && active->id == p.id);
                w.endObject();
            }
            w.endArray();
            out() << w.take();
            return ExitCode::ok;
        }
        for (const Profile& p : profiles.profiles())
            out() << (active && active->id == p.id ? "* " : "  ") << p.displayName().leftJustified(24) << ' '
                  << p.businessName << '\n';
        return ExitCode::ok;
    }

    static int show(const Profile& profile, bool json)
    {
        if (json) {
            out() << ProfileJson::encode(profile);
            return ExitCode::ok;
        }
        out() << "Profile:     " << profile.displayName() << '\n'
              << "Sender:      " << joinNonEmpty({profile.businessName, profile.name}) << '\n'
              << "Address:     " << profile.addressLineOne << ", " << profile.addressPostcode << ' '
              << profile.addressCity << ", " << profile.addressCountry.code << '\n'
              << "Language:    " << labelText(profile.language) << ", currency " << profile.currency.code
              << ", VAT " << profile.vatPercentage << " %\n"
              << "Numbers:     " << profile.numberFormat << " (cancellations " << profile.cancellationPrefix
              << ", quotes " << profile.quotePrefix << ")\n"
              << "Payment:     " << profile.daysToPay << " days; IBAN " << profile.iban << '\n';
        return ExitCode::ok;
    }
};

} // namespace

std::unique_ptr<Command> makeProfileCommand()
{
    return std::make_unique<ProfileCommand>();
}
