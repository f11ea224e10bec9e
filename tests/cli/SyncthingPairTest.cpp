// Two machines with one data folder, carried by a real Syncthing pair on 127.0.0.1: the same
// invoice edited on both at once, invoices created on both while they were apart, a profile
// renamed on one and styled on the other. Nothing may be lost, `ledra check` must report it,
// and resolving must leave one clean folder that both sides agree on.
#include "support/CliRunner.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace {

const QString apiKey = u"ledra-test-key"_s;
const QString folderId = u"ledra"_s;

quint16 freePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort();
}

// One machine: a Syncthing instance and a home for `ledra`, both in a folder of their own.
struct Machine
{
    QString name;
    QString home;
    QString deviceId;
    quint16 listenPort = 0;
    quint16 guiPort = 0;
    std::unique_ptr<QProcess> syncthing;

    QString dataFolder() const { return home + u"/data/Ledra/Data"_s; }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_DATA_HOME"_s, home + u"/data"_s);
        environment.insert(u"XDG_CONFIG_HOME"_s, home + u"/config"_s);
        environment.insert(u"XDG_CACHE_HOME"_s, home + u"/cache"_s);
        environment.insert(u"LEDRA_REGION"_s, u"DE"_s);
        environment.insert(u"LEDRA_NOW"_s, u"2025-03-14T09:30:00+01:00"_s);
        environment.insert(u"LEDRA_TIMEZONE"_s, u"Europe/Berlin"_s);
        return environment;
    }

    CliResult ledra(const QStringList& arguments) const
    {
        return runLedra(QStringLiteral(LEDRA_CLI), arguments, environment());
    }

    // A plain HTTP/1.0 request to the instance's REST interface; the status code and body.
    std::pair<int, QByteArray> rest(const QByteArray& method, const QString& path,
                                    const QByteArray& body = {}) const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, guiPort);
        if (!socket.waitForConnected(2000))
            return {0, {}};
        socket.write(
            method + ' ' + path.toUtf8() + " HTTP/1.0\r\nHost: 127.0.0.1\r\nX-API-Key: " + apiKey.toUtf8() +
            "\r\nContent-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
            "\r\n\r\n" + body);
        QByteArray response;
        QDeadlineTimer deadline(15000);
        while (socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired())
            if (socket.waitForReadyRead(200))
                response += socket.readAll();
        response += socket.readAll();
        const qsizetype headerEnd = response.indexOf("\r\n\r\n");
        const int status = response.mid(9, 3).toInt();
        return {status, headerEnd < 0 ? QByteArray() : response.mid(headerEnd + 4)};
    }
};

QString syncthingProgram()
{
    return QStandardPaths::findExecutable(u"syncthing"_s);
}

// What both sides must agree on: every file a user could care about with its content's hash.
// Syncthing's own marker and the temporary files of writes in progress do not count.
QMap<QString, QByteArray> snapshot(const QString& folder)
{
    QMap<QString, QByteArray> files;
    QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(folder).relativeFilePath(path);
        if (relative.startsWith(u".stfolder"_s) || it.fileName().startsWith(u".syncthing."_s) ||
            it.fileName().endsWith(u".tmp"_s))
            continue;
        QFile file(path);
        if (file.open(QIODevice::ReadOnly))
            files.insert(relative, QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha1));
    }
    return files;
}

QStringList namesIn(const QMap<QString, QByteArray>& files)
{
    return files.keys();
}

} // namespace

class SyncthingPair : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (syncthingProgram().isEmpty())
            GTEST_SKIP() << "syncthing is not installed (scripts/install-deps.sh installs it); the "
                            "two-machine test is skipped";
        ASSERT_TRUE(m_root.isValid());
        m_a.name = u"laptop"_s;
        m_b.name = u"desktop"_s;
        for (Machine* machine : {&m_a, &m_b}) {
            machine->home = m_root.filePath(machine->name);
            const QString config = machine->home + u"/syncthing"_s;
            QProcess generate;
            generate.start(syncthingProgram(), {u"generate"_s, u"--home="_s + config,
                                                u"--no-default-folder"_s, u"--skip-port-probing"_s});
            ASSERT_TRUE(generate.waitForFinished(30000));
            QProcess id;
            id.start(syncthingProgram(), {u"serve"_s, u"--home="_s + config, u"--device-id"_s});
            ASSERT_TRUE(id.waitForFinished(30000));
            machine->deviceId = QString::fromUtf8(id.readAllStandardOutput()).trimmed();
            ASSERT_EQ(machine->deviceId.size(), 63) << machine->deviceId.toStdString();
            machine->listenPort = freePort();
            machine->guiPort = freePort();
            ASSERT_TRUE(QDir().mkpath(machine->dataFolder() + u"/.stfolder"_s));
        }
        for (Machine* machine : {&m_a, &m_b})
            writeConfig(*machine);
        for (Machine* machine : {&m_a, &m_b}) {
            machine->syncthing = std::make_unique<QProcess>();
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(u"STNOUPGRADE"_s, u"1"_s);
            machine->syncthing->setProcessEnvironment(environment);
            machine->syncthing->setProcessChannelMode(QProcess::MergedChannels);
            machine->syncthing->setStandardOutputFile(machine->home + u"/syncthing.log"_s);
            machine->syncthing->start(syncthingProgram(),
                                      {u"serve"_s, u"--home="_s + machine->home + u"/syncthing"_s,
                                       u"--no-browser"_s, u"--no-restart"_s, u"--no-upgrade"_s});
            ASSERT_TRUE(machine->syncthing->waitForStarted(10000));
        }
        // Both REST interfaces up and the two devices connected.
        QDeadlineTimer deadline(20000);
        while (!connected()) {
            ASSERT_FALSE(deadline.hasExpired()) << "the two Syncthing instances did not connect";
            QThread::msleep(200);
        }
    }

    void TearDown() override
    {
        for (Machine* machine : {&m_a, &m_b}) {
            if (!machine->syncthing)
                continue;
            machine->syncthing->terminate();
            if (!machine->syncthing->waitForFinished(5000)) {
                machine->syncthing->kill();
                machine->syncthing->waitForFinished(2000);
            }
        }
    }

    void writeConfig(const Machine& machine)
    {
        // Fixed devices and addresses on 127.0.0.1, no discovery, relays, NAT or usage reports;
        // no watcher and a long rescan interval: the test asks for every scan itself.
        const QString device =
            u"<device id=\"%1\" name=\"%2\" compression=\"metadata\"><address>tcp://127.0.0.1:%3"
            u"</address><autoAcceptFolders>false</autoAcceptFolders></device>"_s;
        QString xml = u"<configuration version=\"36\">\n"_s;
        xml += u"<folder id=\"%1\" label=\"Ledra\" path=\"%2\" type=\"sendreceive\" rescanIntervalS=\"3600\" "
               u"fsWatcherEnabled=\"false\" ignorePerms=\"false\" autoNormalize=\"true\">"
               u"<device id=\"%3\"></device><device id=\"%4\"></device>"
               u"<minDiskFree unit=\"%\">0</minDiskFree><maxConflicts>-1</maxConflicts></folder>\n"_s.arg(
                   folderId, machine.dataFolder(), m_a.deviceId, m_b.deviceId);
        for (const Machine* peer : {&m_a, &m_b})
            xml += device.arg(peer->deviceId, peer->name).arg(peer->listenPort) + u'\n';
        xml +=
            u"<gui enabled=\"true\" tls=\"false\"><address>127.0.0.1:%1</address><apikey>%2</apikey></gui>\n"_s
                .arg(machine.guiPort)
                .arg(apiKey);
        xml +=
            u"<options><listenAddress>tcp://127.0.0.1:%1</listenAddress>"
            u"<globalAnnounceEnabled>false</globalAnnounceEnabled><localAnnounceEnabled>false"
            u"</localAnnounceEnabled><relaysEnabled>false</relaysEnabled><natEnabled>false</natEnabled>"
            u"<urAccepted>-1</urAccepted><startBrowser>false</startBrowser><autoUpgradeIntervalH>0"
            u"</autoUpgradeIntervalH><crashReportingEnabled>false</crashReportingEnabled>"
            u"<minHomeDiskFree unit=\"%\">0</minHomeDiskFree><reconnectionIntervalS>1</reconnectionIntervalS>"
            u"</options>\n</configuration>\n"_s.arg(machine.listenPort);
        QFile file(machine.home + u"/syncthing/config.xml"_s);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(xml.toUtf8());
    }

    bool connected() const
    {
        const auto [status, body] = m_a.rest("GET", u"/rest/system/connections"_s);
        if (status != 200)
            return false;
        const QJsonObject connections =
            QJsonDocument::fromJson(body).object().value(u"connections"_s).toObject();
        return connections.value(m_b.deviceId).toObject().value(u"connected"_s).toBool();
    }

    void scan(const Machine& machine) const { machine.rest("POST", u"/rest/db/scan?folder="_s + folderId); }

    // The link is down while both sides change things: the folder is paused on both, so that
    // each side's changes are scanned before the other's arrive.
    void apart()
    {
        for (const Machine* machine : {&m_a, &m_b})
            ASSERT_EQ(
                machine->rest("PATCH", u"/rest/config/folders/"_s + folderId, R"({"paused":true})").first,
                200);
    }
    void together()
    {
        for (const Machine* machine : {&m_a, &m_b})
            ASSERT_EQ(
                machine->rest("PATCH", u"/rest/config/folders/"_s + folderId, R"({"paused":false})").first,
                200);
        settle();
    }

    // Scans both sides until their data folders hold the same files with the same content.
    void settle()
    {
        QDeadlineTimer deadline(25000);
        int equalPolls = 0;
        for (int round = 0; equalPolls < 3; ++round) {
            ASSERT_FALSE(deadline.hasExpired())
                << "the two data folders did not converge:\n  "
                << namesIn(snapshot(m_a.dataFolder())).join(u"\n  "_s).toStdString() << "\nand\n  "
                << namesIn(snapshot(m_b.dataFolder())).join(u"\n  "_s).toStdString();
            if (round % 5 == 0) {
                scan(m_a);
                scan(m_b);
            }
            QThread::msleep(150);
            equalPolls = snapshot(m_a.dataFolder()) == snapshot(m_b.dataFolder()) ? equalPolls + 1 : 0;
        }
    }

    static QJsonObject check(const Machine& machine, int expectedExit)
    {
        const CliResult result = machine.ledra({u"check"_s, u"--json"_s});
        EXPECT_EQ(result.exitCode, expectedExit) << result.out.toStdString() << result.err.toStdString();
        return QJsonDocument::fromJson(result.out.toUtf8()).object();
    }

    static QString idOfCreated(const CliResult& result)
    {
        // "Created invoice 2025-001  (id 3F2A9C10-…)"
        const qsizetype at = result.out.indexOf(u"(id "_s);
        return at < 0 ? QString() : result.out.mid(at + 4, 36);
    }

    // Every text of every record file of the machine's data folder, to find an edit in.
    static QString everything(const Machine& machine)
    {
        QString text;
        QDirIterator it(machine.dataFolder(), {u"*.json"_s}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            QFile file(it.next());
            if (file.open(QIODevice::ReadOnly))
                text += QString::fromUtf8(file.readAll());
        }
        return text;
    }

    QTemporaryDir m_root;
    Machine m_a;
    Machine m_b;
};

TEST_F(SyncthingPair, EditsOnBothMachinesAreKeptReportedAndResolvedToOneFolder)
{
    // The laptop starts; the desktop gets its data (styling included) through the folder.
    ASSERT_EQ(m_a.ledra({u"styling"_s, u"show"_s}).exitCode, 0);
    const CliResult first = m_a.ledra({u"invoice"_s, u"new"_s});
    ASSERT_EQ(first.exitCode, 0) << first.err.toStdString();
    const QString shared = idOfCreated(first);
    ASSERT_EQ(m_a.ledra({u"invoice"_s, u"set"_s, shared, u"recipient.name"_s, u"Start GmbH"_s}).exitCode, 0);
    settle();
    ASSERT_EQ(m_b.ledra({u"invoice"_s, u"show"_s, shared}).exitCode, 0);

    // 1. The same invoice edited on both machines at the same time.
    apart();
    ASSERT_EQ(m_a.ledra({u"invoice"_s, u"set"_s, shared, u"recipient.name"_s, u"Laptop Edit AG"_s}).exitCode,
              0);
    ASSERT_EQ(m_b.ledra({u"invoice"_s, u"set"_s, shared, u"note"_s, u"Desktop note"_s}).exitCode, 0);
    together();

    // 2. Invoices created on both while the link was down: both are 2025-002.
    apart();
    const QString onA = idOfCreated(m_a.ledra({u"invoice"_s, u"new"_s}));
    const QString onB = idOfCreated(m_b.ledra({u"invoice"_s, u"new"_s}));
    ASSERT_FALSE(onA.isEmpty());
    ASSERT_FALSE(onB.isEmpty());
    together();

    // 3. The profile renamed on the laptop, its styling changed on the desktop.
    apart();
    ASSERT_EQ(m_a.ledra({u"profile"_s, u"rename"_s, u"Default"_s, u"Work"_s}).exitCode, 0);
    ASSERT_EQ(m_b.ledra({u"styling"_s, u"set"_s, u"headlineFontWeight"_s, u"700"_s}).exitCode, 0);
    together();

    // Nothing is lost: each edit is in a record or in a version in conflict, on both sides.
    for (const Machine* machine : {&m_a, &m_b}) {
        const QString text = everything(*machine);
        EXPECT_TRUE(text.contains(u"Laptop Edit AG"_s)) << machine->name.toStdString();
        EXPECT_TRUE(text.contains(u"Desktop note"_s)) << machine->name.toStdString();
        EXPECT_TRUE(text.contains(u"\"headlineFontWeight\": \"700\""_s)) << machine->name.toStdString();
        EXPECT_TRUE(text.contains(onA) && text.contains(onB));
    }

    // Both sides report the same: the invoice in conflict, 2025-002 twice, the left-over folder.
    for (const Machine* machine : {&m_a, &m_b}) {
        const QJsonObject report = check(*machine, 1);
        const QJsonArray conflicts = report.value(u"conflicts"_s).toArray();
        QStringList kinds;
        for (const QJsonValue& conflict : conflicts)
            kinds.append(conflict[u"kind"_s].toString());
        kinds.sort();
        EXPECT_EQ(kinds, (QStringList{u"folder"_s, u"invoice"_s})) << machine->name.toStdString();
        const QJsonArray duplicates = report.value(u"duplicateNumbers"_s).toArray();
        ASSERT_EQ(duplicates.size(), 1) << machine->name.toStdString();
        EXPECT_EQ(duplicates[0][u"number"_s].toString(), u"2025-002"_s);
        QStringList ids;
        for (const QJsonValue& invoice : duplicates[0][u"invoices"_s].toArray())
            ids.append(invoice[u"id"_s].toString());
        ids.sort();
        QStringList expected{onA, onB};
        expected.sort();
        EXPECT_EQ(ids, expected);
    }

    // The laptop resolves: both versions of the invoice are kept, the desktop's new draft gets
    // the next number, the left-over folder joins the profile and its styling wins.
    const QJsonObject report = check(m_a, 1);
    for (const QJsonValue& conflict : report.value(u"conflicts"_s).toArray()) {
        const QString kind = conflict[u"kind"_s].toString();
        const CliResult resolved =
            m_a.ledra({u"resolve"_s, conflict[u"otherFile"_s].toString(), u"--keep"_s, u"both"_s});
        EXPECT_EQ(resolved.exitCode, 0) << kind.toStdString() << resolved.err.toStdString();
    }
    const CliResult renumbered = m_a.ledra({u"invoice"_s, u"renumber"_s, onB});
    EXPECT_EQ(renumbered.exitCode, 0) << renumbered.err.toStdString();
    // Taking the folder in turned the desktop's styling into a version in conflict; keep it.
    const QJsonObject afterFolder = check(m_a, 1);
    const QJsonArray left = afterFolder.value(u"conflicts"_s).toArray();
    ASSERT_EQ(left.size(), 1) << QJsonDocument(afterFolder).toJson().toStdString();
    EXPECT_EQ(left[0][u"kind"_s].toString(), u"styling"_s);
    EXPECT_EQ(m_a.ledra({u"resolve"_s, left[0][u"otherFile"_s].toString(), u"--keep"_s, u"other"_s}).exitCode,
              0);
    settle();

    // One clean folder that both machines agree on, with every edit in it.
    for (const Machine* machine : {&m_a, &m_b}) {
        check(*machine, 0);
        const QString text = everything(*machine);
        EXPECT_TRUE(text.contains(u"Laptop Edit AG"_s));
        EXPECT_TRUE(text.contains(u"Desktop note"_s));
        EXPECT_TRUE(text.contains(u"\"headlineFontWeight\": \"700\""_s));
        EXPECT_FALSE(QFileInfo::exists(machine->dataFolder() + u"/Default"_s)) << machine->name.toStdString();
    }
    EXPECT_EQ(snapshot(m_a.dataFolder()), snapshot(m_b.dataFolder()));
    const CliResult list = m_b.ledra({u"invoice"_s, u"list"_s, u"--json"_s});
    EXPECT_EQ(QJsonDocument::fromJson(list.out.toUtf8()).array().size(), 4) << list.out.toStdString();
}
