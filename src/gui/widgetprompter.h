#pragma once

#include "prompter.h"

class QWidget;

// Answers the program's questions with standard dialogs.
class WidgetPrompter : public Prompter {
public:
    explicit WidgetPrompter(QWidget* parent) : m_parent(parent) {}
    using Prompter::question;
    Answer question(const QString& title, const QString& text, Buttons buttons, Answer defaultButton) override;
    Answer details(const QString& title, const QString& text, const QString& informative,
                   const QString& detailed) override;
    QString saveFileName(const QString& title, const QString& suggested, const QString& filter) override;
    QString existingDirectory(const QString& title, const QString& start) override;
    QString openFileName(const QString& title, const QString& start, const QString& filter) override;
    QString text(const QString& title, const QString& label) override;
    void warning(const QString& title, const QString& text) override;

private:
    QWidget* m_parent;
};
