#include <QtTest>
class TestWorkflows : public QObject { Q_OBJECT };
QTEST_MAIN(TestWorkflows)
#include "tst_workflows.moc"
