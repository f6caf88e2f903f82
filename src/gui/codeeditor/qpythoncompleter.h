#pragma once

#include <QCompleter>

// Completes Python keywords, builtins and the MicroPython modules and classes
// of the Python language file.
class QPythonCompleter : public QCompleter {
    Q_OBJECT
public:
    explicit QPythonCompleter(QObject* parent = nullptr);
};
