#include <QtTest>
class T : public QObject { Q_OBJECT };
QTEST_MAIN(T)
#include "tst_mainwindow.moc"
