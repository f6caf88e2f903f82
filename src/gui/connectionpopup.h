#pragma once

#include <QFrame>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSerialPort;
class QToolButton;

// Board type, port (or WebREPL address and password), baud rate and fast
// transfers, shown as a popup under the Connection toolbar.
class ConnectionPopup : public QFrame {
    Q_OBJECT
public:
    explicit ConnectionPopup(QWidget* parent = nullptr);

    // A device path to offer instead of the remembered port (a virtual board).
    void setOfferedPort(const QString& path) { m_offered = path; }
    void readSettings();
    void writeSettings() const;
    QString port() const;
    int type() const;
    qint32 baud() const;
    QString serialNumber() const;
    void setup(QSerialPort* port, QString* serial) const;
    bool applied() const { return m_applied; }
    // A ws:// address reaches the board over WebREPL, which asks for a password.
    bool webRepl() const;
    QString password() const;
    bool rememberPassword() const;

signals:
    void done();

public slots:
    void on_applyButton_clicked();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void updateApply();
    static bool isDevicePath(const QString& text);

    QComboBox* m_mcCombo;
    QComboBox* m_portsCombo;
    QComboBox* m_baudCombo;
    QCheckBox* m_fastTransfers;
    QLineEdit* m_password;
    QCheckBox* m_remember;
    QToolButton* m_applyButton;
    QString m_offered;
    bool m_applied = false;
    bool m_typedAddress = false; // the port box held a WebREPL address at the last keystroke
};
