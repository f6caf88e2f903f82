#pragma once

#include <QDialog>

#include <memory>

class Prompter;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;

// Edits the user-facing settings: environment (language, board pane,
// transfers) and editor options. Cancel stores nothing.
class Preferences : public QDialog {
    Q_OBJECT
public:
    // Off by default: a failed transfer leaves the file actions off, as it always has.
    static inline const QString kKeepActionsKey = QStringLiteral("MC/KeepActionsAfterFailure");
    // Minutes to go on looking for a board once the reconnect attempts are
    // exhausted; 0 (the default) keeps the cycle as it always was.
    static inline const QString kKeepWaitingKey = QStringLiteral("MC/KeepWaitingMinutes");
    static constexpr int kMaxWaitingMinutes = 60;
    explicit Preferences(QWidget* parent = nullptr);
    ~Preferences() override;

    // The restart warning goes here; a message box when unset.
    void setPrompter(Prompter* prompter) { m_prompter = prompter; }
    void readSettings();
    void writeSettings();
    // What "Fast transfers" does and when to leave it off, wherever it is offered.
    static QString fastTransfersTip();

private:
    void fillLanguages();
    Prompter& prompter();

    Prompter* m_prompter = nullptr;
    std::unique_ptr<Prompter> m_ownPrompter;
    QComboBox* m_language;
    QLabel* m_darkText;
    QComboBox* m_dark;
    QComboBox* m_clickAction;
    QLineEdit* m_stmFolder;
    QLineEdit* m_espFolder;
    QSpinBox* m_transferSize;
    QSpinBox* m_terminalLines;
    QComboBox* m_dirStructure;
    QCheckBox* m_suggestExecute;
    QCheckBox* m_fastTransfers;
    QCheckBox* m_keepActions;
    QSpinBox* m_keepWaiting;
    QLabel* m_darkWarning;
    QComboBox* m_tabs;
    QSpinBox* m_tabSize;
    QCheckBox* m_autoIndent;
    QCheckBox* m_autoParentheses;
    QCheckBox* m_wordWrap;
    QCheckBox* m_whitespace;
};
