#pragma once

#include <QString>

// Every question the program asks a person goes through this interface: the
// window answers with dialogs, tests and the command line from a script.
class Prompter {
public:
    enum Answer { Yes, No, Cancel };
    enum Buttons { YesNo, YesNoCancel };

    virtual ~Prompter() = default;
    virtual Answer question(const QString& title, const QString& text, Buttons buttons) = 0;
    // Empty result: the person cancelled.
    virtual QString saveFileName(const QString& title, const QString& suggested, const QString& filter) = 0;
    virtual QString existingDirectory(const QString& title, const QString& start) = 0;
};
