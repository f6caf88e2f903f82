#pragma once

#include <QString>

// Every question the program asks a person goes through this interface: the
// window answers with dialogs, tests and the command line from a script.
class Prompter {
public:
    // NoButton only names "no default button"; it is never an answer.
    enum Answer { Yes, No, Cancel, NoButton };
    enum Buttons { YesNo, YesNoCancel };

    virtual ~Prompter() = default;
    virtual Answer question(const QString& title, const QString& text, Buttons buttons, Answer defaultButton) = 0;
    Answer question(const QString& title, const QString& text, Buttons buttons)
    {
        return question(title, text, buttons, NoButton);
    }
    // A Yes/No/Cancel question with an informative and a detailed text.
    virtual Answer details(const QString& title, const QString& text, const QString& informative,
                           const QString& detailed) = 0;
    // Empty result: the person cancelled.
    virtual QString saveFileName(const QString& title, const QString& suggested, const QString& filter) = 0;
    virtual QString existingDirectory(const QString& title, const QString& start) = 0;
    virtual QString openFileName(const QString& title, const QString& start, const QString& filter) = 0;
    // A one-line text; empty when cancelled.
    virtual QString text(const QString& title, const QString& label) = 0;
    // A refusal before anything starts: only an Ok button.
    virtual void warning(const QString& title, const QString& text) = 0;
};
