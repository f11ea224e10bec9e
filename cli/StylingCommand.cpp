#include "Commands.h"

#include "render/StylingManager.h"
#include "util/JsonReader.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::Literals::StringLiterals;

namespace {

// A value typed on the command line as the JSON value of a styling key: the type follows the
// key's current value ("true", "1.6", "Dots"; a list as "Logo,Labels"; "null" clears a face).
QJsonValue parseValue(const QJsonValue& current, const QString& text, QString* error)
{
    if (current.isBool()) {
        if (text == u"true" || text == u"false")
            return text == u"true";
        *error = u"expected true or false"_s;
        return {};
    }
    if (current.isDouble()) {
        bool ok = false;
        const double number = text.toDouble(&ok);
        if (ok)
            return number;
        *error = u"expected a number"_s;
        return {};
    }
    if (current.isArray()) {
        QJsonArray array;
        for (const QString& part : text.split(u',', Qt::SkipEmptyParts))
            array.append(part.trimmed());
        return array;
    }
    if (text == u"null")
        return QJsonValue::Null;
    return text;
}

class StylingCommand : public Command
{
public:
    QString name() const override { return u"styling"_s; }
    QString summary() const override { return u"Show or change the document styling of a profile."_s; }

protected:
    void configure(QCommandLineParser& parser) override
    {
        parser.addOption({u"profile-dir"_s,
                          u"The profile folder that holds styling.json (default: the active profile\'s)."_s,
                          u"DIR"_s});
        parser.addPositionalArgument(u"ACTION"_s, u"show | set KEY VALUE | logo FILE"_s,
                                     u"show|set|logo ..."_s);
    }

    int run(const QCommandLineParser& parser) override
    {
        const QStringList arguments = parser.positionalArguments();
        if (arguments.isEmpty())
            return usageError(u"give an action: show, set KEY VALUE or logo FILE"_s);
        // The active profile's folder unless another is named.
        const QString folder = parser.isSet(u"profile-dir"_s)
                                   ? parser.value(u"profile-dir"_s)
                                   : workspace().profiles().activeProfileFolder().value_or(QString());
        if (!QFileInfo(folder).isDir())
            return fail(u"%1: no such profile folder"_s.arg(folder));
        StylingManager manager(folder);
        const QString& action = arguments[0];

        if (action == u"show" && arguments.size() == 1) {
            out() << StylingJson::encode(*manager.styling());
            if (manager.styling()->logo)
                out() << "logo: " << *manager.styling()->logo << '\n';
            if (manager.styling()->css)
                out() << "css: " << manager.styling()->css->size() << " characters\n";
            out().flush();
            return ExitCode::ok;
        }
        if (action == u"set" && arguments.size() == 3) {
            QJsonObject object = QJsonDocument::fromJson(StylingJson::encode(*manager.styling())).object();
            const QString& key = arguments[1];
            if (!object.contains(key) || key == u"id")
                return usageError(u"unknown styling key '%1'"_s.arg(key));
            QString error;
            const QJsonValue value = parseValue(object.value(key), arguments[2], &error);
            if (!error.isEmpty())
                return fail(u"%1: %2"_s.arg(key, error));
            object.insert(key, value);
            Styling styling;
            try {
                styling = StylingJson::decode(QJsonDocument(object).toJson());
            } catch (const JsonDecodeError& decodeError) {
                return fail(decodeError.message());
            }
            styling.logo = manager.styling()->logo;
            styling.css = manager.styling()->css;
            if (!manager.setStyling(styling))
                return fail(u"%1: cannot write the file"_s.arg(manager.stylingPath()));
            return ExitCode::ok;
        }
        if (action == u"logo" && arguments.size() == 2) {
            if (const auto error = manager.setLogo(arguments[1]))
                return fail(error->code == 2 ? arguments[1] + u": "_s + error->description
                                             : error->description);
            out() << *manager.styling()->logo << Qt::endl;
            return ExitCode::ok;
        }
        return usageError(u"expected: show | set KEY VALUE | logo FILE"_s);
    }
};

} // namespace

std::unique_ptr<Command> makeStylingCommand()
{
    return std::make_unique<StylingCommand>();
}
