#include "qpythoncompleter.h"

#include "qlanguage.h"

#include <QFile>
#include <QStringListModel>

QPythonCompleter::QPythonCompleter(QObject* parent) : QCompleter(parent)
{
    QStringList words;
    QFile file(QStringLiteral(":/languages/python.xml"));
    if (file.open(QIODevice::ReadOnly)) {
        const QLanguage language(&file);
        for (const QString& key : language.keys())
            words += language.names(key);
    }
    words.removeDuplicates();
    std::sort(words.begin(), words.end(),
              [](const QString& a, const QString& b) { return a.compare(b, Qt::CaseInsensitive) < 0; });
    setModel(new QStringListModel(words, this));
    setModelSorting(QCompleter::CaseInsensitivelySortedModel);
    setCaseSensitivity(Qt::CaseInsensitive);
    setWrapAround(true);
}
