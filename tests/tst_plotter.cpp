#include "boardsession.h"
#include "pelkamwindow.h"
#include "plot/plotdata.h"
#include "plotterview.h"

#include <QAction>
#include <QLineEdit>
#include <QTabWidget>
#include <QTextBrowser>
#include <QtTest>

#include <qwt_legend_label.h>
#include <qwt_plot.h>
#include <qwt_scale_div.h>

class TestPlotter : public QObject {
    Q_OBJECT
    QTemporaryDir m_dir;

private slots:
    void initTestCase() { isolateSettings(m_dir); }

    void parseLine_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("parsed");
        QTest::newRow("labelled") << "temp: 21.5 hum: 40"
                                  << "temp=21.5 hum=40";
        QTest::newRow("csv") << "21.5,40,-3"
                             << "1=21.5 2=40 3=-3";
        QTest::newRow("units stay with their number") << "t=21.5C, h=40% p=1.013e3hPa"
                                                      << "t=21.5 h=40 p=1013";
        QTest::newRow("numbers inside words are names") << "sensor2 v1.2: .5"
                                                        << "sensor2 v1.2=0.5";
        QTest::newRow("colours") << "\x1b[32mx: 1\x1b[0m y: -2.5"
                                 << "x=1 y=-2.5";
        QTest::newRow("mixed") << "a=1 2"
                               << "a=1 2=2";
        QTest::newRow("no numbers") << "Traceback (most recent call last):"
                                    << "";
        QTest::newRow("typed at the prompt") << ">>> run(400, 5)"
                                             << "";
        QTest::newRow("a dot or sign alone") << "- . + e5 ..."
                                             << "";
    }
    void parseLine()
    {
        QFETCH(QString, line);
        QFETCH(QString, parsed);
        QStringList out;
        for (const auto& v : PlotData::parseLine(line))
            out << v.first + QLatin1Char('=') + QString::number(v.second);
        QCOMPARE(out.join(QLatin1Char(' ')), parsed);
    }

    // Limits, series count and the CSV on a known clock.
    void dataKeepsWhatItShould()
    {
        PlotData d;
        d.setLimit(3);
        for (int i = 0; i < 10; ++i)
            QVERIFY(d.addLine(QStringLiteral("a: %1 b: %2").arg(i).arg(i * 10), 100 + i * 0.5));
        QVERIFY(!d.addLine(QStringLiteral("no numbers here"), 200));
        QCOMPARE(d.samples(), qint64(10));
        QCOMPARE(d.series().size(), 2);
        QCOMPARE(d.series().at(0).count(), 3);
        QCOMPARE(d.series().at(0).at(0).value, 7.0);
        QCOMPARE(d.series().at(0).at(2).seconds, 4.5);
        QCOMPARE(d.toCsv(), QByteArray("sample,seconds,a,b\n7,3.500,7,70\n8,4.000,8,80\n9,4.500,9,90\n"));
        d.setLimit(1000);
        for (int i = 0; i < 20; ++i)
            d.addLine(QStringLiteral("s%1: 1").arg(i), 300);
        QCOMPARE(d.series().size(), PlotData::kMaxSeries);
        QCOMPARE(d.droppedSeries(), 6);
        d.clear();
        QVERIFY(d.series().isEmpty());
        QVERIFY(d.addLine(QStringLiteral("'a\"b,c': 1"), 5));
        QCOMPARE(d.toCsv(), QByteArray("sample,seconds,\"a\"\"b,c\"\n0,0.000,1\n"));
        // A pause far longer than the usual period starts a new run; jitter does not.
        d.clear();
        for (double t : {0.0, 0.1, 0.2, 0.35, 0.4, 0.5, 3.0, 3.1, 3.2})
            d.addLine(QStringLiteral("v: 1"), t);
        QCOMPARE(PlotData::gapStarts(d.series().at(0)), QVector<int>{6});
    }

    // A monitored board printing two labelled series and a CSV series into
    // the real window: series, names, Pause, Clear, the point limit and the exports.
    void boardOutputInTheWindow()
    {
        QSettings().setValue(QStringLiteral("UI/PlotPoints"), 100);
        const QByteArray script = "import time\n"
                                  "def run(n, pause):\n"
                                  " for i in range(n):\n"
                                  "  print('temp: %d.5 hum: %d' % (20 + i, 40 - i))\n"
                                  "  print('%d,%d' % (i, 2 * i))\n"
                                  "  time.sleep_ms(pause)\n"
                                  " print('done')\n";
        BoardSession s(QStringLiteral("esp32"), {}, {{"plot.py", script}});
        PelkamWindow w;
        auto prompter = std::make_unique<ScriptedPrompter>();
        ScriptedPrompter* answers = prompter.get();
        w.setPrompter(std::move(prompter));
        w.show();
        auto* plotter = w.findChild<PlotterView*>(QStringLiteral("plotterView"));
        auto* tabs = w.findChild<QTabWidget*>(QStringLiteral("logTabWidget"));
        QVERIFY(plotter && tabs);
        w.action(QStringLiteral("actionPlotter"))->trigger();
        QCOMPARE(tabs->currentWidget(), plotter);

        w.action(QStringLiteral("actionMonitor_Only"))->setChecked(true);
        BoardLink::PortSettings settings;
        settings.name = s.board.path();
        settings.type = MC_ESP32;
        QVERIFY(w.connectTo(settings));
        QVERIFY(waitFor([&] { return w.link().isOpen(); }));
        QTest::qWait(500);
        // Numbers Pelkam prints itself ("Opened connection to /dev/pts/3") are not the board's.
        QCOMPARE(plotter->data().samples(), qint64(0));
        // Nor is the echo of a line typed at the REPL line, with its prompt or
        // (the prompt came before Pelkam listened) without.
        auto* line = w.findChild<QLineEdit*>(QStringLiteral("replEdit"));
        auto* terminal = w.findChild<QTextBrowser*>(QStringLiteral("runtimeLogBrowser"));
        for (const QString& typed : {QStringLiteral("x = 1 + 1"), QStringLiteral("y = 2 * 3")}) {
            QTest::keyClicks(line, typed);
            QTest::keyClick(line, Qt::Key_Return);
            QVERIFY(waitFor([&] { return terminal->toPlainText().contains(typed); }));
        }
        QTest::qWait(300);
        QCOMPARE(plotter->data().samples(), qint64(0));
        QVERIFY(w.link().write("from plot import run\r\nrun(400, 5)\r\n"));
        QVERIFY(waitFor([&] { return plotter->data().samples() >= 100; }, 20000));

        w.findChild<QAction*>(QStringLiteral("actionPlotPause"))->trigger();
        QVERIFY(plotter->isPaused());
        const int shown = plotter->shownPoints(QStringLiteral("temp"));
        const qint64 before = plotter->data().samples();
        QVERIFY(waitFor([&] { return plotter->data().samples() > before + 50; }, 20000));
        QTest::qWait(300);
        QCOMPARE(plotter->shownPoints(QStringLiteral("temp")), shown);
        QCOMPARE(tabs->currentWidget(), plotter);
        QVERIFY(waitFor([&] { return plotter->data().samples() == 800; }, 30000));
        w.findChild<QAction*>(QStringLiteral("actionPlotPause"))->trigger();
        QVERIFY(!plotter->isPaused());

        QStringList names;
        for (const PlotData::Series& series : plotter->data().series())
            names << series.name + QLatin1Char(':') + QString::number(series.count());
        QCOMPARE(names, QStringList({"temp:100", "hum:100", "1:100", "2:100"}));
        QCOMPARE(plotter->shownPoints(QStringLiteral("2")), 100);
        const PlotData::Series& temp = plotter->data().series().at(0);
        QCOMPARE(temp.at(temp.count() - 1).value, 419.5);
        QCOMPARE(temp.at(temp.count() - 1).sample, qint64(798));

        // A click on a legend entry hides its series; another shows it again.
        QwtLegendLabel* humEntry = nullptr;
        for (auto* label : plotter->findChildren<QwtLegendLabel*>())
            if (label->data().title().text() == QLatin1String("hum"))
                humEntry = label;
        QVERIFY(humEntry && humEntry->isChecked());
        QTest::mouseClick(humEntry, Qt::LeftButton);
        QVERIFY(!plotter->isSeriesVisible(QStringLiteral("hum")));
        QVERIFY(plotter->isSeriesVisible(QStringLiteral("temp")));
        QTest::mouseClick(humEntry, Qt::LeftButton);
        QVERIFY(plotter->isSeriesVisible(QStringLiteral("hum")));
        plotter->setSeriesVisible(QStringLiteral("hum"), false);

        answers->fileName = m_dir.filePath(QStringLiteral("values"));
        w.findChild<QAction*>(QStringLiteral("actionPlotExportCsv"))->trigger();
        const QList<QByteArray> rows = readFile(answers->fileName + QStringLiteral(".csv")).split('\n');
        QCOMPARE(rows.first(), QByteArray("sample,seconds,temp,hum,1,2"));
        QCOMPARE(rows.size(), 202); // 100 lines of each kind and the final newline
        QVERIFY2(rows.at(199).startsWith("798,") && rows.at(199).endsWith(",419.5,-359,,"), rows.at(199).constData());
        QVERIFY2(rows.at(200).startsWith("799,") && rows.at(200).endsWith(",,,399,798"), rows.at(200).constData());
        answers->fileName = m_dir.filePath(QStringLiteral("view.png"));
        w.findChild<QAction*>(QStringLiteral("actionPlotExportPng"))->trigger();
        QImage image(answers->fileName);
        QVERIFY(!image.isNull() && image.width() >= 800 && image.height() >= 400);
        // Every label whole: nothing is drawn in the margin round the picture.
        const QRgb margin = image.pixel(0, 0);
        for (int x = 0; x < image.width(); ++x)
            QVERIFY2(image.pixel(x, 2) == margin && image.pixel(x, image.height() - 3) == margin, qPrintable(QString::number(x)));

        w.findChild<QAction*>(QStringLiteral("actionPlotClear"))->trigger();
        QCOMPARE(plotter->data().samples(), qint64(0));
        // The axes start afresh too, not at the old run's range.
        auto* plot = plotter->findChild<QwtPlot*>();
        QVERIFY(plot && plot->axisScaleDiv(QwtPlot::xBottom).upperBound() <= 1.0);
        QVERIFY(plot->axisScaleDiv(QwtPlot::yLeft).upperBound() <= 1.0);
        QCOMPARE(plotter->shownPoints(QStringLiteral("temp")), 0);
        QVERIFY(w.link().write("run(3, 0)\r\n"));
        QVERIFY(waitFor([&] { return plotter->data().samples() == 6; }, 10000));
        // A second run after a pause is a line of its own, not joined to the first.
        QTest::qWait(1000);
        QVERIFY(w.link().write("run(3, 0)\r\n"));
        QVERIFY(waitFor([&] { return plotter->data().samples() == 12; }, 10000));
        plotter->refresh();
        QCOMPARE(plotter->shownRuns(QStringLiteral("temp")), 2);
        // What a script run with "Run on the MC" prints is plotted too; its traceback is not.
        QVERIFY(w.files().execute_script(writeFile(m_dir.filePath(QStringLiteral("volts.py")),
                                                   "for i in range(3):\n print('volt: %d.5' % i)\nraise ValueError(7)\n")));
        QVERIFY(waitFor([&] { return plotter->data().samples() == 15; }, 10000));
        QTest::qWait(200);
        QCOMPARE(plotter->data().samples(), qint64(15));
        QCOMPARE(plotter->data().series().last().name, QStringLiteral("volt"));
        QCOMPARE(tabs->currentWidget(), plotter);
        // Whoever watches the plot keeps watching it when the board starts a program.
        w.link().setState(MC_RUNNING);
        QCOMPARE(tabs->currentWidget(), plotter);
        QSettings().remove(QStringLiteral("UI/PlotPoints"));
    }
};

QTEST_MAIN(TestPlotter)
#include "tst_plotter.moc"
