#pragma once

#include <QDialog>

class QCheckBox;
class QLineEdit;

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

public slots:
    void setSource(const QString& text);
    void setDestination(const QString& text);

signals:
    void sourceChanged(const QString& text);
    void destinationChanged(const QString& text);

private:
    QLineEdit* m_source;
    QLineEdit* m_destination;
    QCheckBox* m_recursive;
    QCheckBox* m_missing;
};
