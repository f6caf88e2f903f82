#include "boardsession.h"
#include "packages/packageinstaller.h"
#include "sync/ignorerules.h"
#include "sync/synchronizer.h"
#include "workflows/fileworkflows.h"

#include <QFileInfo>
#include <QProcess>
#include <QTimer>
#include <QtTest>

// The file workflows and the synchronisation, end to end against the virtual
// board, with the questions answered from a script.
struct Workbench {
    BoardSession s;
    ScriptedPrompter prompter;
    PackageInstaller packages{s.files};
    Synchronizer sync{s.files};
    FileWorkflows flows{s.files, packages, sync};
    QTemporaryDir pc;

    explicit Workbench(const QString& flavour, const QStringList& args = {}, const QMap<QString, QByteArray>& seed = {})
        : s(flavour, args, seed)
    {
        for (QObject* o : std::initializer_list<QObject*>{&packages, &sync, &flows})
            QObject::connect(o, SIGNAL(logLine(QString)), &s.files, SIGNAL(logLine(QString)));
        packages.setPrompter(&prompter);
        flows.setPrompter(&prompter);
        flows.setPcRoot(pc.path());
    }
    QString local(const QString& rel, const QByteArray& data) { return writeFile(pc.filePath(rel), data); }
    QByteArray board(const QString& rel)
    {
        s.board.dump();
        return s.board.readFile(rel);
    }
    QModelIndex row(const QString& name) const { return s.row(name); }
    void answer(std::initializer_list<Prompter::Answer> answers)
    {
        prompter.answers = answers;
        prompter.questions.clear();
        s.log.clear();
    }
};

class TestWorkflows : public QObject {
    Q_OBJECT
    QTemporaryDir m_settingsDir;

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void uploadQuestions();
    void boardPane();
    void collectionOrder();
    void ignoreRules_data();
    void ignoreRules();
    void synchronisation();
    void sha1BoardAndFailures();
};

void TestWorkflows::uploadQuestions()
{
    Workbench w(QStringLiteral("esp32"));
    QVERIFY(w.s.open());
    const QByteArray deep = QByteArray("deep\x00\xff", 6).repeated(100);
    const QFileInfo top(w.local(QStringLiteral("top.py"), "print('top')\n"));
    const QFileInfo nested(w.local(QStringLiteral("sub/dir/deep.py"), deep));

    // A file in the PC root goes up by name without a question.
    w.answer({});
    w.flows.pcFileActivated(top);
    QVERIFY(w.prompter.questions.isEmpty());
    QCOMPARE(w.board(QStringLiteral("top.py")), QByteArray("print('top')\n"));
    QVERIFY(w.s.model.fileExists(QStringLiteral("top.py")));

    // From a sub-folder: asked (2, and any other value such as 5), or not (0, 1).
    struct Case {
        int setting;
        QList<Prompter::Answer> answers;
        QString boardPath; // empty: nothing uploaded
    };
    const QList<Case> cases{{2, {Prompter::Yes}, "sub/dir/deep.py"},
                            {2, {Prompter::No}, "deep.py"},
                            {5, {Prompter::Cancel}, ""},
                            {0, {}, "sub/dir/deep.py"},
                            {1, {}, "deep.py"}};
    for (const Case& c : cases) {
        w.s.files.remove(QStringLiteral("/sub/dir/deep.py"), false);
        w.s.files.remove(QStringLiteral("/deep.py"), false);
        w.s.option([&](BoardOptions& o) { o.subDirsSel = c.setting; });
        w.prompter.answers = c.answers;
        w.prompter.questions.clear();
        w.flows.pcFileActivated(nested);
        QCOMPARE(w.prompter.questions,
                 c.setting < 2 ? QStringList()
                               : QStringList{"Upload File: Keep the subdirectory structure?|File's relative path is "
                                             "sub/dir/deep.py|If you choose to keep the directory structure, the "
                                             "file will be uploaded to\n/sub/dir/deep.py\n\nIf not, it will be "
                                             "uploaded to\n/deep.py"});
        w.s.board.dump();
        for (const QString& path : {QStringLiteral("sub/dir/deep.py"), QStringLiteral("deep.py")})
            QCOMPARE(w.s.board.readFile(path), path == c.boardPath ? deep : QByteArray());
    }
    QSettings().remove(QStringLiteral("MC/SubDirsSel"));

    // A package by any case of its extension: Cancel, No (a plain file), Yes.
    const QString packagePath = w.pc.filePath(QStringLiteral("x.UPACK"));
    QProcess zip;
    zip.start(QStringLiteral("python3"),
              {"-c", "import zipfile,sys\nwith zipfile.ZipFile(sys.argv[1],'w') as z: z.writestr('pkg/x.py','x=1')",
               packagePath});
    QVERIFY(zip.waitForFinished() && zip.exitCode() == 0);
    const QString packageQuestion =
        QStringLiteral("Upload File: This is an update package. Do you want to unpack it and upload its contents?");
    w.answer({Prompter::Cancel});
    w.flows.pcFileActivated(QFileInfo(packagePath));
    QCOMPARE(w.prompter.questions, QStringList{packageQuestion});
    QVERIFY(!w.s.logged(QStringLiteral("upload")));
    w.answer({Prompter::No});
    w.flows.pcFileActivated(QFileInfo(packagePath));
    QVERIFY(!w.board(QStringLiteral("x.UPACK")).isEmpty());
    w.answer({Prompter::Yes});
    w.flows.pcFileActivated(QFileInfo(packagePath));
    QCOMPARE(w.board(QStringLiteral("pkg/x.py")), QByteArray("x=1"));

    // A script: the execute question only with "MC/SuggestExecute".
    const QFileInfo script(w.local(QStringLiteral("run.py"), "print(6 * 7)\n"));
    w.answer({});
    w.flows.pcFileActivated(script);
    QVERIFY(w.prompter.questions.isEmpty());
    w.s.option([](BoardOptions& o) { o.suggestExecute = true; });
    w.answer({Prompter::Yes});
    w.flows.pcFileActivated(script);
    QCOMPARE(w.prompter.questions,
             QStringList{QStringLiteral("Upload File: Execute this file on the MC instead of uploading?")});
    QVERIFY(w.s.logged(QStringLiteral("&gt;&gt;42")));
    QVERIFY(!w.s.logged(QStringLiteral("Start uploading")));
    w.answer({Prompter::Cancel});
    w.flows.pcFileActivated(script);
    QVERIFY(!w.s.logged(QStringLiteral("Start uploading")) && !w.s.logged(QStringLiteral("executed")));
    w.answer({Prompter::No});
    w.flows.pcFileActivated(script);
    QVERIFY(w.s.logged(QStringLiteral("Finished uploading to /run.py")));
}

void TestWorkflows::boardPane()
{
    Workbench w(QStringLiteral("esp32"), {},
                {{"a.txt", "board A"}, {"dir/inner.txt", "i"}, {"empty/", {}}, {"dir/sub/", {}}});
    QVERIFY(w.s.open());
    QVERIFY(w.row(QStringLiteral("a.txt")).isValid());

    // Download: asks only over an existing file; No leaves it alone.
    const QString local = w.pc.filePath(QStringLiteral("a.txt"));
    w.answer({});
    QVERIFY(w.flows.action_download_core(w.row(QStringLiteral("a.txt"))));
    QVERIFY(w.prompter.questions.isEmpty());
    w.local(QStringLiteral("a.txt"), "mine");
    w.answer({Prompter::No});
    QVERIFY(!w.flows.action_download_core(w.row(QStringLiteral("a.txt"))));
    QCOMPARE(w.prompter.questions, QStringList{QStringLiteral("Download file: File %1 exists. Overwrite?").arg(local)});
    QCOMPARE(readFile(local), QByteArray("mine"));
    w.answer({Prompter::Yes});
    QVERIFY(w.flows.action_download_core(w.row(QStringLiteral("a.txt"))));
    QCOMPARE(readFile(local), QByteArray("board A"));

    // Remove: a folder gets the reminder, the board refuses a non-empty one
    // and the listing is not refreshed; an empty one goes and the pane follows.
    QSignalSpy cleared(&w.s.model, &QAbstractItemModel::rowsRemoved);
    w.answer({});
    QVERIFY(!w.flows.removeEntry(w.row(QStringLiteral("dir"))));
    QCOMPARE(w.s.log.first(), QStringLiteral("Directory dir must be empty in order to be removed"));
    QVERIFY(w.s.logged(QStringLiteral("Removal error")));
    QCOMPARE(cleared.count(), 0);
    QVERIFY(w.flows.removeEntry(w.row(QStringLiteral("empty"))));
    QVERIFY(!w.row(QStringLiteral("empty")).isValid());
    QVERIFY(w.flows.removeEntry(w.row(QStringLiteral("a.txt"))));
    QVERIFY(w.board(QStringLiteral("a.txt")).isEmpty());
    QVERIFY(!w.row(QStringLiteral("a.txt")).isValid());

    // New directory: an existing name is refused before anything is sent.
    w.prompter.texts = QStringList{QStringLiteral("dir")};
    w.answer({});
    QVERIFY(!w.flows.newDirectory());
    QCOMPARE(w.prompter.questions.last(),
             QStringLiteral("New Directory: A directory with the same name already exists"));
    QVERIFY(w.s.log.isEmpty());
    w.prompter.texts = QStringList{QStringLiteral("fresh")};
    QVERIFY(w.flows.newDirectory());
    QVERIFY(w.row(QStringLiteral("fresh")).isValid());
    QVERIFY(QFileInfo(w.s.board.dump() + QStringLiteral("/fresh")).isDir());
    w.prompter.texts.clear();
    QVERIFY(!w.flows.newDirectory()); // cancelled

    // Rename: a forbidden character or a taken name is refused before anything is sent.
    w.prompter.texts = QStringList{QStringLiteral("b:d"), QStringLiteral("dir"), QStringLiteral("renamed")};
    w.answer({});
    QVERIFY(!w.flows.renameEntry(w.row(QStringLiteral("fresh"))));
    QVERIFY(!w.flows.renameEntry(w.row(QStringLiteral("fresh"))));
    QCOMPARE(w.prompter.questions.mid(1, 1), QStringList{"Rename: The name b:d cannot be used on the board"});
    QCOMPARE(w.prompter.questions.mid(3, 1), QStringList{"Rename: dir already exists"});
    QVERIFY(w.s.log.isEmpty());
    QVERIFY(w.flows.renameEntry(w.row(QStringLiteral("fresh"))));
    QVERIFY(w.row(QStringLiteral("renamed")).isValid() && !w.row(QStringLiteral("fresh")).isValid());
    QVERIFY(QFileInfo(w.s.board.dump() + QStringLiteral("/renamed")).isDir());

    // Folders and "..": two levels down and back; ".." at the root does nothing.
    QCOMPARE(w.flows.mcEntryActivated(w.row(QStringLiteral("dir")), {}), FileWorkflows::Navigated);
    QCOMPARE(w.s.model.dirPath(), QStringLiteral("/dir/"));
    QCOMPARE(w.flows.mcEntryActivated(w.row(QStringLiteral("sub")), {}), FileWorkflows::Navigated);
    QCOMPARE(w.s.model.dirPath(), QStringLiteral("/dir/sub/"));
    QCOMPARE(w.flows.mcEntryActivated(w.row(QStringLiteral("..")), {}), FileWorkflows::Navigated);
    QCOMPARE(w.s.model.dirPath(), QStringLiteral("/dir/"));

    // A file: edit unless "MC/ClickAction" is exactly "download".
    const QModelIndex inner = w.row(QStringLiteral("inner.txt"));
    QCOMPARE(w.flows.mcEntryActivated(inner, inner), FileWorkflows::EditRequested);
    w.s.option([](BoardOptions& o) { o.clickAction = QStringLiteral("Download"); });
    QCOMPARE(w.flows.mcEntryActivated(inner, inner), FileWorkflows::EditRequested);
    w.s.option([](BoardOptions& o) { o.clickAction = QStringLiteral("download"); });
    QCOMPARE(w.flows.mcEntryActivated(inner, inner), FileWorkflows::Downloaded);
    QVERIFY(QFileInfo::exists(w.pc.filePath(QStringLiteral("inner.txt"))));

    QCOMPARE(w.flows.mcEntryActivated(w.row(QStringLiteral("..")), {}), FileWorkflows::Navigated);
    QCOMPARE(w.s.model.dirPath(), QStringLiteral("/"));
    w.s.model.append({QStringLiteral("..")}, true);
    QCOMPARE(w.flows.mcEntryActivated(w.row(QStringLiteral("..")), {}), FileWorkflows::Ignored);
    QCOMPARE(w.s.model.dirPath(), QStringLiteral("/"));
}

void TestWorkflows::collectionOrder()
{
    QTemporaryDir root;
    for (const char* rel : {"b.txt", "a.txt", ".hidden", "z/1.txt", "z/y/2.txt", "m/3.txt", "m/.h/4.txt"})
        writeFile(root.filePath(QLatin1String(rel)));
    QDir().mkpath(root.filePath(QStringLiteral("e/f")));
    QCOMPARE(Synchronizer::collectSyncFiles(root.path(), QString(), true),
             QStringList({"m/3.txt", "z/y/2.txt", "z/1.txt", "a.txt", "b.txt"}));
    QCOMPARE(Synchronizer::collectSyncFiles(root.path(), QString(), false), QStringList({"a.txt", "b.txt"}));
}

void TestWorkflows::ignoreRules_data()
{
    QTest::addColumn<QString>("rules");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("isDir");
    QTest::addColumn<bool>("ignored");
    const auto row = [](const char* name, const char* rules, const char* path, bool isDir, bool ignored) {
        QTest::newRow(name) << QString::fromLatin1(rules) << QString::fromLatin1(path) << isDir << ignored;
    };
    row("any level", "*.pyc", "lib/x.pyc", false, true);
    row("star stays in a name", "lib*", "libs/x.py", false, true);
    row("folder rule, file", "build/", "build", false, false);
    row("folder rule, inside", "build/", "src/build/x.py", false, true);
    row("anchored", "/main.py", "lib/main.py", false, false);
    row("middle slash anchors", "lib/*.py", "x/lib/a.py", false, false);
    row("star stops at slash", "lib/*.py", "lib/sub/a.py", false, false);
    row("leading globstar", "**/test_*.py", "a/b/test_c.py", false, true);
    row("inner globstar, none", "a/**/z.py", "a/z.py", false, true);
    row("inner globstar, deep", "a/**/z.py", "a/b/c/z.py", false, true);
    row("trailing globstar", "docs/**", "docs/a/b.md", false, true);
    row("question mark", "?.py", "ab.py", false, false);
    row("class", "[a-c].py", "b.py", false, true);
    row("negated class", "[!a-c].py", "b.py", false, false);
    row("negated class never matches a slash", "a[!x]b", "a/b", false, false);
    row("byte-order mark is no part of a rule", "\xef\xbb\xbfmain.py", "main.py", false, true);
    row("re-included", "*.txt\n!keep.txt", "keep.txt", false, false);
    row("last rule wins", "!keep.txt\n*.txt", "keep.txt", false, true);
    row("parent folder stays ignored", "secret/\n!secret/a.txt", "secret/a.txt", false, true);
    row("contents re-included", "/secrets/*\n!/secrets/public.txt", "secrets/public.txt", false, false);
    row("comment and escape", "# main.py\n\\#x\n", "#x", false, true);
    row("comment is no rule", "# main.py", "main.py", false, false);
}

void TestWorkflows::ignoreRules()
{
    QFETCH(QString, rules);
    QFETCH(QString, path);
    QFETCH(bool, isDir);
    QFETCH(bool, ignored);
    const IgnoreRules parsed(QString::fromUtf8(rules.toLatin1()));
    QCOMPARE(parsed.ignored(path, isDir), ignored);
    QVERIFY(parsed.problems().isEmpty());
    QCOMPARE(IgnoreRules(QStringLiteral("*.log\n[z-a].py\n")).problems().value(0).left(22),
             QStringLiteral(".pelkamignore, line 2:"));
}

void TestWorkflows::synchronisation()
{
    Workbench w(QStringLiteral("stm32"), {},
                {{"same.py", "same\n"},
                 {"old.py", "board version\n"},
                 {"lib/same.py", "lib\n"},
                 {"ghost.py", "g"},
                 {"lib/", {}}});
    QVERIFY(w.s.open());
    const QString root = w.pc.path();
    const QString done = QStringLiteral("Synchronized files from folders %1/ and /flash/").arg(root);

    // An empty folder: only the closing line.
    w.answer({});
    QVERIFY(w.sync.sync_core(root, Synchronizer::collectSyncFiles(root, QString(), true), true));
    QCOMPARE(w.s.log.last(), done);
    QVERIFY(!w.s.logged(QStringLiteral("Skipping")));

    w.local(QStringLiteral("same.py"), "same\n");
    w.local(QStringLiteral("old.py"), "new version\n");
    w.local(QStringLiteral("lib/same.py"), "lib\n");
    w.local(QStringLiteral("lib/new.py"), "brand new\n");
    w.local(QStringLiteral("top_new.py"), "top\n");
    QSignalSpy uploaded(&w.sync, &Synchronizer::fileUploaded);

    // Missing files off: reported and skipped; only the changed file goes.
    w.answer({});
    QVERIFY(w.sync.sync_core(root, Synchronizer::collectSyncFiles(root, QString(), true), false));
    QVERIFY(w.s.logged(QStringLiteral("Skipping lib/new.py - destination file is missing")));
    QVERIFY(w.s.logged(QStringLiteral("Skipping lib/same.py - files are identical")));
    QVERIFY(w.s.logged(QStringLiteral("Skipping same.py - files are identical")));
    QCOMPARE(uploaded.count(), 1);
    QCOMPARE(w.board(QStringLiteral("old.py")), QByteArray("new version\n"));
    QCOMPARE(w.s.log.last(), done);

    // Not recursive, missing on: the root's new file only.
    uploaded.clear();
    w.answer({});
    QVERIFY(w.sync.sync_core(root, Synchronizer::collectSyncFiles(root, QString(), false), true));
    QCOMPARE(uploaded.count(), 1);
    QCOMPARE(uploaded.first().first().toString(), QStringLiteral("top_new.py"));
    QVERIFY(w.board(QStringLiteral("lib/new.py")).isEmpty());

    // A board file with no local counterpart cannot be read here.
    w.answer({});
    QVERIFY(w.sync.sync_core(root, {QStringLiteral("ghost.py")}, true));
    QVERIFY(w.s.logged(QStringLiteral("Skipping ghost.py - file is not readable")));

    // Everything compared before the first upload.
    w.answer({});
    QVERIFY(w.sync.sync_core(root, Synchronizer::collectSyncFiles(root, QString(), true), true));
    const int lastSkip = w.s.log.lastIndexOf(QRegularExpression(QStringLiteral("Skipping.*")));
    const int firstUpload = w.s.log.indexOf(QRegularExpression(QStringLiteral("Start uploading.*")));
    QVERIFY2(lastSkip >= 0 && firstUpload > lastSkip, qPrintable(w.s.log.join(QLatin1Char('\n'))));
    QCOMPARE(w.board(QStringLiteral("lib/new.py")), QByteArray("brand new\n"));

    // The one-file sync of the context menu uploads a missing file.
    w.local(QStringLiteral("lib/one.py"), "one\n");
    QVERIFY(w.flows.syncFile(w.pc.filePath(QStringLiteral("lib/one.py"))));
    QCOMPARE(w.board(QStringLiteral("lib/one.py")), QByteArray("one\n"));
}

void TestWorkflows::sha1BoardAndFailures()
{
    {
        Workbench w(QStringLiteral("esp32"), {QStringLiteral("--hash"), QStringLiteral("sha1")},
                    {{"a.py", "A"}, {"b.py", "B"}, {"c.py", "old"}});
        QVERIFY(w.s.open());
        w.local(QStringLiteral("a.py"), "A");
        w.local(QStringLiteral("b.py"), "B");
        w.local(QStringLiteral("c.py"), "new");
        w.answer({});
        QVERIFY(w.sync.sync_core(w.pc.path(), {"a.py", "b.py", "c.py"}, true));
        QCOMPARE(w.s.count(QStringLiteral("MC does not support MD5 computation - switched to SHA1")), 1);
        QCOMPARE(w.s.count(QStringLiteral("files are identical")), 2);
        QCOMPARE(w.board(QStringLiteral("c.py")), QByteArray("new"));
        // A first file that differs gives no chance to detect SHA1: uploaded.
        w.local(QStringLiteral("a.py"), "A2");
        w.answer({});
        QVERIFY(w.sync.sync_core(w.pc.path(), {"a.py"}, true));
        QVERIFY(!w.s.logged(QStringLiteral("switched")));
        QCOMPARE(w.board(QStringLiteral("a.py")), QByteArray("A2"));
    }
    {
        // No digest on the board: stop before any upload.
        Workbench w(QStringLiteral("esp32"), {QStringLiteral("--hash"), QStringLiteral("none")}, {{"a.py", "A"}});
        QVERIFY(w.s.open());
        w.local(QStringLiteral("a.py"), "changed");
        w.answer({});
        QVERIFY(!w.sync.sync_core(w.pc.path(), {"a.py"}, true));
        QCOMPARE(w.s.log.last(), QStringLiteral("Syncronization aborted: hash computation failure"));
        QCOMPARE(w.board(QStringLiteral("a.py")), QByteArray("A"));
    }
    {
        // A board that drops midway ends the sync with one line, and a new
        // sync after reconnecting works.
        Workbench w(QStringLiteral("esp32"), {QStringLiteral("--baud"), QStringLiteral("115200")});
        for (int i = 0; i < 6; ++i)
            w.local(QStringLiteral("f%1.py").arg(i), QByteArray(2000, char('a' + i)));
        QVERIFY(w.s.open());
        auto c = QObject::connect(&w.s.files, &BoardFiles::logLine, [&](const QString& line) {
            if (line.startsWith(QLatin1String("Finished uploading to /f1.py")))
                QTimer::singleShot(50, [&] { w.s.link.connectionClosed(); });
        });
        w.answer({});
        const QStringList files = Synchronizer::collectSyncFiles(w.pc.path(), QString(), true);
        QVERIFY(!w.sync.sync_core(w.pc.path(), files, true));
        QObject::disconnect(c);
        QCOMPARE(w.s.count(QStringLiteral("Synchronization aborted: the MC is disconnected")), 1);
        QVERIFY(!w.s.files.busy());
        w.s.infoDone = false;
        QVERIFY(w.s.open());
        QVERIFY(w.sync.sync_core(w.pc.path(), files, true));
        for (int i = 0; i < 6; ++i)
            QCOMPARE(w.board(QStringLiteral("f%1.py").arg(i)), QByteArray(2000, char('a' + i)));
    }
}

QTEST_MAIN(TestWorkflows)
#include "tst_workflows.moc"
