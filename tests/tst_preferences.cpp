#include "preferences.h"
#include "testsupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSpinBox>
#include <QtTest>

class TestPreferences : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

    template <typename T> static T* child(Preferences& p, const char* name)
    {
        T* w = p.findChild<T*>(QLatin1String(name));
        if (!w)
            qFatal("no widget %s", name);
        return w;
    }
    static QStringList state(Preferences& p)
    {
        QStringList out;
        for (const char* combo :
             {"global_langCombo", "global_MCClickCombo", "globat_DirStructCombo", "editor_TabsCombo"})
            out << child<QComboBox>(p, combo)->currentText();
        out << child<QSpinBox>(p, "global_TransferSizeSpin")->text()
            << QString::number(child<QSpinBox>(p, "editor_TabSizeSpin")->value())
            << child<QLineEdit>(p, "global_STMFolderEdit")->text()
            << child<QLineEdit>(p, "global_ESPFolderEdit")->text();
        for (const char* box : {"global_MCExecCheck", "editor_AutoIndentCheck", "editor_AutoParentCheck",
                                "editor_WordWrapCheck", "editor_WhiteSpaceCheck"})
            if (child<QCheckBox>(p, box)->isChecked())
                out << QLatin1String(box);
        return out;
    }

private slots:
    void initTestCase() { isolateSettings(m_dir); }
    void init() { QSettings().clear(); }

    void defaultsAndFallbacks()
    {
        Preferences p;
        p.readSettings();
        // The three groups' fields start in one column.
        p.show();
        QSet<int> columns;
        for (const char* field : {"global_langCombo", "global_MCClickCombo", "global_TransferSizeSpin"}) {
            QWidget* w = child<QWidget>(p, field);
            columns << w->mapTo(&p, QPoint(0, 0)).x();
        }
        QCOMPARE(columns.size(), 1);
        p.hide();
        QCOMPARE(state(p), QStringList({"System", "Edit File", "Always ask", "Spaces", "Default", "4", "/flash", "/",
                                        "editor_AutoParentCheck"}));

        QSettings s;
        s.setValue(QStringLiteral("MC/SubDirsSel"), 7);
        s.setValue(QStringLiteral("MC/ClickAction"), QStringLiteral("Download"));
        s.setValue(QStringLiteral("UI/Language"), 31); // the numeric code stored at first start
        s.setValue(QStringLiteral("MC/TransferSize"), 5);
        s.setValue(QStringLiteral("Code/Tabs"), false);
        s.setValue(QStringLiteral("Code/TabSize"), 99);
        p.readSettings();
        QCOMPARE(state(p).mid(0, 6), QStringList({"System", "Edit File", "Always ask", "Tabs", "Default", "16"}));
        s.setValue(QStringLiteral("UI/Language"), QStringLiteral("ru_RU"));
        s.setValue(QStringLiteral("MC/ClickAction"), QStringLiteral("download"));
        p.readSettings();
        QCOMPARE(state(p).mid(0, 2), QStringList({"русский (Россия)", "Download File"}));
    }

    void storing()
    {
        ScriptedPrompter prompter;
        // OK with changes stores exactly these values; the numeric code is
        // replaced by "" with one restart warning.
        QSettings().setValue(QStringLiteral("UI/Language"), 31);
        {
            Preferences p;
            p.setPrompter(&prompter);
            p.readSettings();
            child<QComboBox>(p, "global_MCClickCombo")->setCurrentIndex(1);
            child<QComboBox>(p, "globat_DirStructCombo")->setCurrentIndex(0);
            // Only chunk sizes the board script takes are offered; typed ones are rounded down.
            auto* spin = child<QSpinBox>(p, "global_TransferSizeSpin");
            QStringList offered;
            for (int step = 0; step < 7; ++step) {
                spin->stepBy(1);
                offered << spin->text();
            }
            QCOMPARE(offered, QStringList({"32", "64", "128", "256", "512", "1024", "1024"}));
            spin->findChild<QLineEdit*>()->setText(QStringLiteral("1000"));
            spin->interpretText();
            QCOMPARE(spin->value(), 512);
            spin->stepBy(-1);
            child<QLineEdit>(p, "global_STMFolderEdit")->setText(QStringLiteral("/sd/app"));
            child<QSpinBox>(p, "global_TerminalLinesSpin")->setValue(5000);
            child<QComboBox>(p, "editor_TabsCombo")->setCurrentIndex(1);
            child<QCheckBox>(p, "editor_AutoIndentCheck")->setChecked(true);
            child<QCheckBox>(p, "global_MCExecCheck")->setChecked(true);
            child<QCheckBox>(p, "global_FastTransfersCheck")->setChecked(true);
            p.writeSettings();
        }
        QCOMPARE(prompter.questions,
                 QStringList{"Change Language: Language will be changed after an application restart."});
        QSettings s;
        QStringList stored;
        for (const char* key : {"UI/Language", "MC/ClickAction", "MC/SubDirsSel", "MC/TransferSize", "MC/STMDir",
                                "MC/ESPDir", "MC/SuggestExecute", "Code/Tabs", "Code/Indent", "Code/TabSize",
                                "UI/TerminalLines", "MC/FastTransfers"})
            stored << s.value(QLatin1String(key)).toString();
        QCOMPARE(stored,
                 QStringList({"", "download", "0", "256", "/sd/app", "/", "true", "false", "true", "4", "5000", "true"}));

        // From "System" to a language: no warning (deliberately); the same
        // language again: none; another language: one.
        const auto choose = [&](const QString& text) {
            Preferences p;
            p.setPrompter(&prompter);
            p.readSettings();
            auto* combo = child<QComboBox>(p, "global_langCombo");
            combo->setCurrentIndex(combo->findText(text));
            p.writeSettings();
        };
        prompter.questions.clear();
        choose(QString::fromUtf8("русский (Россия)"));
        QCOMPARE(s.value(QStringLiteral("UI/Language")).toString(), QStringLiteral("ru_RU"));
        choose(QString::fromUtf8("русский (Россия)"));
        QVERIFY(prompter.questions.isEmpty());
        choose(QStringLiteral("American English (United States)"));
        QCOMPARE(prompter.questions.size(), 1);
        QCOMPARE(s.value(QStringLiteral("UI/Language")).toString(), QStringLiteral("en_US"));
    }

    void cancelStoresNothing()
    {
        QSettings().setValue(QStringLiteral("UI/Language"), QStringLiteral("ru_RU"));
        Preferences p;
        p.readSettings();
        child<QComboBox>(p, "global_MCClickCombo")->setCurrentIndex(1);
        child<QComboBox>(p, "global_langCombo")->setCurrentIndex(0);
        QTimer::singleShot(0, &p, &QDialog::reject);
        QCOMPARE(p.exec(), int(QDialog::Rejected));
        const QSettings s;
        QCOMPARE(s.allKeys(), QStringList{"UI/Language"});
        QCOMPARE(s.value(QStringLiteral("UI/Language")).toString(), QStringLiteral("ru_RU"));
    }
};

QTEST_MAIN(TestPreferences)
#include "tst_preferences.moc"
