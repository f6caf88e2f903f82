#pragma once

#include <QDialog>

class QCheckBox;
class QLineEdit;
class QPlainTextEdit;

// Asks how to synchronise the PC folder into the board folder.
class SyncConfigurationDialog : public QDialog {
    Q_OBJECT
public:
    explicit SyncConfigurationDialog(QWidget* parent = nullptr);

    void readSettings();
    void writeSettings();

    QString source() const;
    QString destination() const;
    bool recursive() const;
    bool missing() const;
    // Newer options, unchecked unless the user checks them in this dialog.
    bool createDirs() const;
    bool deleteExtra() const;

    // Shows what a sync would do, under the options.
    // problem: what will stop the sync, shown in place of the generic line.
    void showPreview(const QStringList& uploads, const QStringList& deletions, bool complete,
                     const QString& problem = QString());

public slots:
    void setSource(const QString& text);
    void setDestination(const QString& text);

signals:
    void sourceChanged(const QString& text);
    void destinationChanged(const QString& text);
    // The "Preview" button: the caller compares and calls showPreview().
    void previewRequested();

private:
    QLineEdit* m_source;
    QLineEdit* m_destination;
    QCheckBox* m_recursive;
    QCheckBox* m_missing;
    QCheckBox* m_createDirs;
    QCheckBox* m_delete;
    QPlainTextEdit* m_preview;
};
