#include "boardsession.h"
#include "codeeditor/qcodeeditor.h"
#include "codeeditor/qsyntaxhighlighters.h"
#include "codeeditor/qsyntaxstyle.h"
#include "codeeditordialog.h"
#include "remoteedit.h"

#include <QAbstractItemView>
#include <QPushButton>
#include <QTextBlock>
#include <QTextDocument>
#include <QTimer>
#include <QtTest>

// The code editor: highlighters on real lines (formats, not pixels), the
// editing keys, the dialog's rules and remote editing on the virtual board.
class TestCodeEditor : public QObject {
    Q_OBJECT
    QTemporaryDir m_settingsDir;

    // The format name the highlighter gave the character at pos of a line.
    static QString formatAt(const QTextDocument& doc, int line, int pos)
    {
        const QTextBlock block = doc.findBlockByNumber(line);
        QTextCharFormat found;
        for (const QTextLayout::FormatRange& r : block.layout()->formats())
            if (pos >= r.start && pos < r.start + r.length)
                found = r.format;
        for (const char* name :
             {"Keyword", "Function", "String", "Number", "Comment", "Type", "PrimitiveType", "Preprocessor"})
            if (found == QSyntaxStyle::defaultStyle()->getFormat(QLatin1String(name)))
                return QLatin1String(name);
        return found == QTextCharFormat() ? QString() : QStringLiteral("?");
    }
    template <typename Highlighter> static void highlight(QTextDocument& doc, const QString& text)
    {
        doc.setPlainText(text);
        auto* h = new Highlighter(&doc);
        h->setSyntaxStyle(QSyntaxStyle::defaultStyle());
        h->rehighlight();
    }

private slots:
    void initTestCase() { isolateSettings(m_settingsDir); }
    void init() { QSettings().clear(); }

    void highlighters();
    void editorKeys();
    void detection();
    void dialog();
    void remoteEditing_data();
    void remoteEditing();
};

void TestCodeEditor::highlighters()
{
    CodeEditor loadResources; // registers the styles and language files
    QVERIFY(QSyntaxStyle::defaultStyle()->isLoaded() && QSyntaxStyle::defaultDarkStyle()->isLoaded());
    QCOMPARE(QSyntaxStyle::defaultStyle()->getFormat(QStringLiteral("NoSuchFormat")), QTextCharFormat());
    QSyntaxStyle broken;
    QVERIFY(!broken.load(QStringLiteral("<style-scheme><style name='x'>")));
    QVERIFY(!broken.isLoaded());

    QTextDocument py;
    highlight<QPythonHighlighter>(
        py, QStringLiteral("def f(x):\n    s = \"str\"  # note 42\n    n = 0x12 + machine.freq(3)\n"
                           "'''doc\nstill doc\nend'''\nreturn x\n"));
    QCOMPARE(formatAt(py, 0, 6), QString());
    QCOMPARE(formatAt(py, 1, 23), QStringLiteral("Comment")); // a number inside a comment
    QCOMPARE(formatAt(py, 2, 9), QStringLiteral("Number"));
    QCOMPARE(formatAt(py, 2, 15), QStringLiteral("Type"));     // machine: a MicroPython module
    QCOMPARE(formatAt(py, 2, 23), QStringLiteral("Function")); // freq(
    for (int line = 3; line <= 5; ++line)
        QCOMPARE(formatAt(py, line, 1), QStringLiteral("String"));
    QCOMPARE(formatAt(py, 6, 7), QString()); // the string ended

    QTextDocument cpp;
    highlight<QCXXHighlighter>(cpp, QStringLiteral("#include <stdio.h>\nint main() { return 0x1Fu; } // done\n/* one\n"
                                                   "two */ auto s = \"a\\\"b\";\n"));
    QCOMPARE(formatAt(cpp, 0, 12), QStringLiteral("Preprocessor"));
    QCOMPARE(formatAt(cpp, 1, 21), QStringLiteral("Number"));
    QCOMPARE(formatAt(cpp, 3, 2), QStringLiteral("Comment"));
    QCOMPARE(formatAt(cpp, 3, 7), QStringLiteral("Keyword"));
    QCOMPARE(formatAt(cpp, 3, 19), QStringLiteral("String"));

    QTextDocument xml;
    highlight<QXMLHighlighter>(xml, QStringLiteral("<config mode=\"fast\"/>\n<!-- a\ncomment -->\n<b>"));
    QCOMPARE(formatAt(xml, 0, 15), QStringLiteral("String"));
    QCOMPARE(formatAt(xml, 2, 1), QStringLiteral("Comment"));
    QCOMPARE(formatAt(xml, 3, 1), QStringLiteral("Keyword"));

    QTextDocument json;
    highlight<QJSONHighlighter>(json, QStringLiteral("{\"ssid\": \"home\", \"retries\": 3, \"dhcp\": true}"));
    QCOMPARE(formatAt(json, 0, 2), QStringLiteral("Type"));
    QCOMPARE(formatAt(json, 0, 28), QStringLiteral("Number"));
    QCOMPARE(formatAt(json, 0, 40), QStringLiteral("Keyword"));
}

void TestCodeEditor::editorKeys()
{
    QCodeEditor editor;
    editor.show();
    QVERIFY(QTest::qWaitForWindowExposed(&editor));
    const auto place = [&editor](const QString& text, int position) {
        editor.setPlainText(text);
        QTextCursor c = editor.textCursor();
        c.setPosition(position);
        editor.setTextCursor(c);
    };
    // Return between braces: three lines indented 4, 8 and 4, cursor in the middle.
    place(QStringLiteral("    {}"), 5);
    QTest::keyClick(&editor, Qt::Key_Return);
    QCOMPARE(editor.toPlainText(), QStringLiteral("    {\n        \n    }"));
    QCOMPARE(editor.textCursor().blockNumber(), 1);
    QCOMPARE(editor.textCursor().positionInBlock(), 8);
    // Return keeps the line's indentation.
    place(QStringLiteral("  x"), 3);
    QTest::keyClick(&editor, Qt::Key_Return);
    QCOMPARE(editor.toPlainText(), QStringLiteral("  x\n  "));
    // Tab inserts the replacement, Backtab takes one step back.
    place(QString(), 0);
    QTest::keyClick(&editor, Qt::Key_Tab);
    QTest::keyClick(&editor, Qt::Key_Tab);
    QCOMPARE(editor.toPlainText(), QStringLiteral("        "));
    QTest::keyClick(&editor, Qt::Key_Backtab);
    QCOMPARE(editor.toPlainText(), QStringLiteral("    "));
    editor.setTabReplace(false);
    place(QString(), 0);
    QTest::keyClick(&editor, Qt::Key_Tab);
    QCOMPARE(editor.toPlainText(), QStringLiteral("\t"));
    editor.setTabReplace(true);
    // Pairs: an opening bracket brings its partner; a closing one steps over.
    place(QString(), 0);
    QTest::keyClicks(&editor, QStringLiteral("f(x"));
    QCOMPARE(editor.toPlainText(), QStringLiteral("f(x)"));
    QTest::keyClick(&editor, ')');
    QCOMPARE(editor.toPlainText(), QStringLiteral("f(x)"));
    QCOMPARE(editor.textCursor().position(), 4);
    editor.setAutoParentheses(false);
    QTest::keyClick(&editor, '(');
    QCOMPARE(editor.toPlainText(), QStringLiteral("f(x)("));

    // Completion after two letters, not after one.
    CodeEditor dialog;
    dialog.load(QStringLiteral("main.py"), QByteArray());
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    QCodeEditor* code = dialog.editor();
    QVERIFY(code->completer());
    code->setFocus();
    QTest::keyClick(code, 'p');
    QVERIFY(!code->completer()->popup()->isVisible());
    QTest::keyClick(code, 'r');
    QVERIFY(code->completer()->popup()->isVisible());
    QCOMPARE(code->completer()->currentCompletion(), QStringLiteral("print"));
    QTest::keyClick(code->completer()->popup(), Qt::Key_Return);
    QCOMPARE(code->toPlainText(), QStringLiteral("print"));
    // A completed bracket ends the word: the popup closes, Return is a Return.
    code->setAutoParentheses(true);
    code->clear();
    QTest::keyClicks(code, QStringLiteral("pr"));
    QVERIFY(code->completer()->popup()->isVisible());
    QTest::keyClick(code, '(');
    QVERIFY(!code->completer()->popup()->isVisible());
    QTest::keyClick(code, Qt::Key_Return);
    QCOMPARE(code->toPlainText(), QStringLiteral("pr(\n)"));
    // A second file in the same dialog must not keep the first one's
    // completer and highlighter once they are deleted.
    dialog.load(QStringLiteral("notes.txt"), QByteArray("plain"));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!code->completer());
    QTest::keyClicks(code, QStringLiteral("ab"));
    dialog.load(QStringLiteral("b.py"), QByteArray());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QTest::keyClicks(code, QStringLiteral("pr"));
    QVERIFY(code->completer()->popup()->isVisible());
}

void TestCodeEditor::detection()
{
    // config.json only by content; ".json" is a prefix test; XML after blanks, in any case.
    QCOMPARE(EditRules::detectType("config.json", "{a: 1}", "{a: 1}"), EditRules::Other);
    QCOMPARE(EditRules::detectType("config.json", "{\"a\": 1}", "{\"a\": 1}"), EditRules::JSON);
    QCOMPARE(EditRules::detectType(".jsonrc", "not json", "not json"), EditRules::JSON);
    QCOMPARE(EditRules::detectType("s.cfg", "  \n<?XML version='1.0'?>", "  \n<?XML version='1.0'?>"), EditRules::XML);
    QCOMPARE(EditRules::detectType("MAIN.PY", "x", "x"), EditRules::Python);
}

void TestCodeEditor::dialog()
{
    QVERIFY(!CodeEditor::isBinary(QByteArray("text\0with nul", 13)));
    QVERIFY(!CodeEditor::isBinary(QString::fromUtf8("\xd0\xbf\xd1\x80\xd0\xb8 \xf0\x9f\x98\x80").toUtf8()));
    QVERIFY(CodeEditor::isBinary(QByteArray("\x80rest")));
    QVERIFY(CodeEditor::isBinary(QByteArray("ok\xff")));
    QVERIFY(!CodeEditor::isBinary(QByteArray()));
    QByteArray bytes(600, '\0');
    for (int i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i);
    const QStringList dump = CodeEditor::formatBinary(bytes).split(QLatin1Char('\n'));
    QCOMPARE(dump.size(), 33);
    QCOMPARE(dump.first(), QStringLiteral("0000: 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F"));
    QCOMPARE(dump.at(31), QStringLiteral("01F0: F0 F1 F2 F3 F4 F5 F6 F7 F8 F9 FA FB FC FD FE FF"));
    QCOMPARE(dump.last(), QStringLiteral("0200: <...>"));
    QCOMPARE(CodeEditor::formatBinary(QByteArray(512, 'a')).count(QLatin1Char('\n')), 31);

    ScriptedPrompter prompter;
    CodeEditor editor;
    editor.setPrompter(&prompter);
    // Binary: a read-only hex dump; nothing can be saved.
    editor.load(QStringLiteral("fw.bin"), QByteArray("\x80\x81"));
    QCOMPARE(prompter.questions,
             QStringList{"Code Editor: Looks like this is a binary file. Switching to read-only mode."});
    QVERIFY(!editor.findChild<QPushButton*>(QStringLiteral("applyButton"))->isEnabled());
    QCOMPARE(editor.editor()->toPlainText(), QStringLiteral("0000: 80 81"));

    // JSON by content: shown indented, stored compact; invalid JSON asks.
    editor.load(QStringLiteral("config.json"), QByteArray("{\"ssid\":\"home\",\"n\":[1,2]}"));
    QVERIFY(editor.findChild<QPushButton*>(QStringLiteral("applyButton"))->isEnabled());
    QVERIFY(editor.editor()->toPlainText().contains(QStringLiteral("\n    \"ssid\": \"home\"")));
    QCOMPARE(editor.text(), QByteArray("{\"n\":[1,2],\"ssid\":\"home\"}"));
    editor.editor()->setPlainText(QStringLiteral("{broken"));
    prompter.questions.clear();
    prompter.answers = {Prompter::No};
    editor.applyFilter();
    QCOMPARE(editor.result(), int(QDialog::Rejected));
    QCOMPARE(prompter.questions.size(), 1);
    QVERIFY(prompter.questions.first().startsWith(
        QStringLiteral("Code Editor: The edited data is not a valid JSON document. Proceed?<br>Error: ")));
    prompter.answers = {Prompter::Yes};
    editor.applyFilter();
    QCOMPARE(editor.result(), int(QDialog::Accepted));
    QCOMPARE(editor.text(), QByteArray("{broken")); // uploaded as typed
    // Escape on modified text asks; No keeps the editor, Yes discards.
    editor.setResult(-1);
    editor.editor()->document()->setModified(true);
    prompter.questions.clear();
    prompter.answers = {Prompter::No, Prompter::Yes};
    QTest::keyClick(&editor, Qt::Key_Escape);
    QCOMPARE(editor.result(), -1);
    QTest::keyClick(&editor, Qt::Key_Escape);
    QCOMPARE(editor.result(), int(QDialog::Rejected));
    QCOMPARE(prompter.questions, QStringList({"Code Editor: Discard the changes?", "Code Editor: Discard the changes?"}));

    // Save As: a failure is reported twice (signal and warning); success writes text().
    QTemporaryDir dir;
    QSignalSpy errors(&editor, &CodeEditor::error);
    editor.directory = dir.path();
    prompter.questions.clear();
    prompter.fileName = dir.filePath(QStringLiteral("no/such/folder/x.json"));
    editor.on_saveButton_clicked();
    QCOMPARE(errors.count(), 1);
    QCOMPARE(prompter.questions.last(), QStringLiteral("Save As: File %1 cannot be written").arg(prompter.fileName));
    QCOMPARE(prompter.questions.first(), QStringLiteral("Save As: %1/config.json").arg(dir.path()));
    prompter.fileName = dir.filePath(QStringLiteral("x.json"));
    editor.on_saveButton_clicked();
    QCOMPARE(readFile(prompter.fileName), QByteArray("{broken"));
}

void TestCodeEditor::remoteEditing_data()
{
    QTest::addColumn<QString>("flavour");
    QTest::newRow("stm32") << QStringLiteral("stm32");
    QTest::newRow("esp32") << QStringLiteral("esp32");
}

void TestCodeEditor::remoteEditing()
{
    QFETCH(QString, flavour);
    BoardSession s(flavour, {}, {{"main.py", "print('v1')\n"}, {"gone.py", "x"}});
    QVERIFY(s.open());
    QWidget window;
    ScriptedPrompter prompter;
    RemoteEdit edit(s.files, &window);
    edit.setPrompter(&prompter);
    QObject::connect(&edit, &RemoteEdit::logLine, [&s](const QString& l) { s.log << l; });
    QObject::connect(&s.link, &BoardLink::connectionLost, &edit, &RemoteEdit::connectionClosed);
    const auto row = [&s](const QString& name) { return s.row(name); };

    // Edit and upload back.
    edit.edit(row(QStringLiteral("main.py")));
    QVERIFY(edit.editing() && edit.editor());
    QCOMPARE(edit.editor()->editor()->toPlainText(), QStringLiteral("print('v1')\n"));
    QVERIFY(!edit.editor()->isModal());
    edit.editor()->editor()->setPlainText(QStringLiteral("print('v2')\n"));
    QSignalSpy finished(&edit, &RemoteEdit::editFinished);
    edit.editor()->findChild<QPushButton*>(QStringLiteral("applyButton"))->click();
    QVERIFY(finished.wait(20000));
    QVERIFY(!edit.editing());
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("main.py")), QByteArray("print('v2')\n"));

    // Close without saving: the board is untouched and the next edit opens at once.
    edit.edit(row(QStringLiteral("main.py")));
    edit.editor()->editor()->setPlainText(QStringLiteral("lost"));
    edit.editor()->findChild<QPushButton*>(QStringLiteral("closeButton"))->click();
    QVERIFY(finished.wait(5000));
    QVERIFY(!edit.editing());
    edit.edit(row(QStringLiteral("main.py")));
    QVERIFY(edit.editing());
    edit.editor()->reject();
    QVERIFY(finished.wait(5000));
    s.board.dump();
    QCOMPARE(s.board.readFile(QStringLiteral("main.py")), QByteArray("print('v2')\n"));

    // New File: refused names, then an empty file that appears in the listing.
    prompter.texts = QStringList{QStringLiteral("sub\\x.py"), QStringLiteral("main.py"), QStringLiteral("new.py")};
    prompter.questions.clear();
    edit.newFile();
    edit.newFile();
    QCOMPARE(prompter.questions.mid(1, 1), QStringList{"New File: The file name is invalid"});
    QCOMPARE(prompter.questions.mid(3, 1), QStringList{"New File: A file with the same name already exists"});
    QVERIFY(!edit.editing());
    edit.newFile();
    QVERIFY(edit.editing() && edit.editor()->isModal());
    edit.editor()->accept();
    QVERIFY(finished.wait(20000));
    QVERIFY(row(QStringLiteral("new.py")).isValid());
    QVERIFY(QFileInfo::exists(s.board.dump() + QStringLiteral("/new.py")));

    // A failed download leaves the edit state until the connection closes.
    const QModelIndex gone = row(QStringLiteral("gone.py"));
    QVERIFY(s.files.remove(s.root() + QStringLiteral("gone.py"), false));
    edit.edit(gone);
    QVERIFY(edit.editing());
    QVERIFY(!edit.editor() || edit.editor()->editor()->toPlainText() != QStringLiteral("x"));
    prompter.questions.clear();
    edit.newFile();
    edit.action_edit_core(row(QStringLiteral("main.py")));
    QCOMPARE(prompter.questions,
             QStringList({"New File: A file is already being edited", "Edit: A file is already being edited"}));
    s.link.connectionClosed();
    QVERIFY(!edit.editing());

    // The board drops during "Save && Upload": the text can still be saved.
    s.infoDone = false;
    QVERIFY(s.open());
    edit.edit(row(QStringLiteral("main.py")));
    CodeEditor* open = edit.editor();
    open->editor()->setPlainText(QStringLiteral("keep me\n"));
    auto pull = connect(&s.files, &BoardFiles::progressStarted,
                        [&] { QTimer::singleShot(50, [&] { s.link.connectionClosed(); }); });
    QTemporaryDir local;
    prompter.fileName = local.filePath(QStringLiteral("main.py"));
    prompter.answers = {Prompter::Yes};
    prompter.questions.clear();
    open->accept();
    QVERIFY(finished.wait(20000));
    disconnect(pull);
    QVERIFY(!s.link.isOpen());
    QCOMPARE(prompter.questions.first(), QStringLiteral("Edit: The file cannot be uploaded. Save it?"));
    QCOMPARE(readFile(prompter.fileName), QByteArray("keep me\n"));
}

QTEST_MAIN(TestCodeEditor)
#include "tst_codeeditor.moc"
