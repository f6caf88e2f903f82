#include "connectionpopup.h"

#include "preferences.h"
#include "qmaterialicon.h"
#include "secretstore.h"

#include "link/transports.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QSerialPort>
#include <QSerialPortInfo>
#include <QSettings>
#include <QToolButton>

namespace {
// Network addresses connected to lately, offered beside the local ports.
const QString kRecentKey = QStringLiteral("UI/RecentAddresses");
constexpr int kRecentKept = 8;
} // namespace

ConnectionPopup::ConnectionPopup(QWidget* parent) : QFrame(parent, Qt::Popup)
{
    setObjectName(QStringLiteral("ConnectionPopup"));
    setWindowTitle(QStringLiteral("Frame"));
    setFrameShape(QFrame::StyledPanel);
    auto* layout = new QHBoxLayout(this);
    layout->setObjectName(QStringLiteral("horizontalLayout"));
    layout->setContentsMargins(4, 4, 4, 4);

    m_mcCombo = new QComboBox(this);
    m_mcCombo->setObjectName(QStringLiteral("mcCombo"));
    m_mcCombo->addItems({QStringLiteral("STM32"), QStringLiteral("ESP32")});

    m_portsCombo = new QComboBox(this);
    m_portsCombo->setObjectName(QStringLiteral("portsCombo"));
    m_portsCombo->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_portsCombo->setMinimumWidth(220);
    // A typed device path reaches ports the system does not list (ptys, socat).
    m_portsCombo->setEditable(true);
    m_portsCombo->setInsertPolicy(QComboBox::NoInsert);
    m_portsCombo->lineEdit()->setPlaceholderText(tr("Port, device path or ws://HOST"));

    m_baudCombo = new QComboBox(this);
    m_baudCombo->setObjectName(QStringLiteral("baudCombo"));
    m_baudCombo->addItems({QStringLiteral("9600"), QStringLiteral("19200"), QStringLiteral("38400"),
                           QStringLiteral("57600"), QStringLiteral("115200"), QStringLiteral("230400"),
                           QStringLiteral("460800")});

    // The same setting as in Preferences, where a new user choosing a board sees it.
    m_fastTransfers = new QCheckBox(tr("Fast transfers"), this);
    m_fastTransfers->setObjectName(QStringLiteral("fastTransfersCheck"));
    m_fastTransfers->setToolTip(Preferences::fastTransfersTip());

    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("passwordEdit"));
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setPlaceholderText(tr("WebREPL password"));
    m_password->setToolTip(tr("The password set on the board with \"import webrepl_setup\""));
    m_remember = new QCheckBox(tr("Remember password"), this);
    m_remember->setObjectName(QStringLiteral("rememberPasswordCheck"));
    m_remember->setToolTip(tr("Keep the password in the desktop's secret store, never in Pelkam's settings"));

    m_applyButton = new QToolButton(this);
    m_applyButton->setObjectName(QStringLiteral("applyButton"));
    m_applyButton->setText(QStringLiteral("..."));
    m_applyButton->setIcon(materialIcon(QStringLiteral("done")));

    m_mcCombo->setToolTip(tr("Board type"));
    m_portsCombo->setToolTip(tr("Serial port, device path, WebREPL address (ws://HOST[:PORT]) or a serial port on "
                                "another machine (rfc2217://HOST:PORT, socket://HOST:PORT)"));
    m_baudCombo->setToolTip(tr("Baud rate"));
    layout->addWidget(m_mcCombo);
    layout->addWidget(m_portsCombo);
    layout->addWidget(m_baudCombo);
    layout->addWidget(m_password);
    layout->addWidget(m_remember);
    layout->addWidget(m_fastTransfers);
    layout->addWidget(m_applyButton);

    connect(m_portsCombo, &QComboBox::editTextChanged, this, &ConnectionPopup::updateApply);
    // WebREPL runs on ESP32 and ESP8266 boards: typing an address picks that
    // type once; the user may still change it.
    connect(m_portsCombo->lineEdit(), &QLineEdit::textEdited, this, [this](const QString& text) {
        const bool network = Transports::needsPassword(text);
        if (network && !m_typedAddress)
            m_mcCombo->setCurrentIndex(1);
        m_typedAddress = network;
    });
    connect(m_password, &QLineEdit::textChanged, this, &ConnectionPopup::updateApply);
    connect(m_password, &QLineEdit::returnPressed, this, [this] {
        if (m_applyButton->isEnabled())
            on_applyButton_clicked();
    });
    QMetaObject::connectSlotsByName(this);
}

void ConnectionPopup::readSettings()
{
    QSettings settings;
    const int mc = settings.value(QStringLiteral("UI/MC"), 0).toInt();
    if (mc >= 0 && mc < m_mcCombo->count())
        m_mcCombo->setCurrentIndex(mc);
    m_baudCombo->setCurrentText(settings.value(QStringLiteral("UI/Baud"), QStringLiteral("115200")).toString());
    m_fastTransfers->setChecked(settings.value(QStringLiteral("MC/FastTransfers"), false).toBool());
    m_portsCombo->clear();
    const QList<QSerialPortInfo> ports = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo& info : ports)
        m_portsCombo->addItem(info.portName(), info.serialNumber());
    if (!m_offered.isEmpty() && m_portsCombo->findText(m_offered) < 0)
        m_portsCombo->addItem(m_offered, QString());
    const QStringList recent = settings.value(kRecentKey).toStringList();
    for (const QString& address : recent)
        if (Transports::isNetwork(address) && m_portsCombo->findText(address) < 0)
            m_portsCombo->addItem(address, QString());
    QString text = settings.value(QStringLiteral("UI/Port"), m_portsCombo->itemText(0)).toString();
    // A remembered board that is gone is not offered as if it were there; a
    // network address cannot be checked before connecting, so it stays.
    if (m_portsCombo->findText(text) < 0 && !isDevicePath(text) && !Transports::isNetwork(text))
        text = m_portsCombo->itemText(0);
    if (!m_offered.isEmpty())
        text = m_offered;
    const int index = m_portsCombo->findText(text);
    if (index >= 0)
        m_portsCombo->setCurrentIndex(index);
    m_portsCombo->setEditText(text);
    m_typedAddress = webRepl();
    m_remember->setChecked(settings.value(QStringLiteral("WebREPL/RememberPassword"), false).toBool());
    if (webRepl() && m_remember->isChecked())
        m_password->setText(SecretStore::read(port()));
    updateApply();
}

void ConnectionPopup::writeSettings() const
{
    QSettings settings;
    settings.setValue(QStringLiteral("UI/Baud"), m_baudCombo->currentText());
    settings.setValue(QStringLiteral("UI/Port"), port());
    settings.setValue(QStringLiteral("UI/MC"), type());
    settings.setValue(QStringLiteral("MC/FastTransfers"), m_fastTransfers->isChecked());
    if (webRepl())
        settings.setValue(QStringLiteral("WebREPL/RememberPassword"), m_remember->isChecked());
    if (Transports::isNetwork(port())) {
        QStringList recent = settings.value(kRecentKey).toStringList();
        recent.removeAll(port());
        recent.prepend(port());
        settings.setValue(kRecentKey, QStringList(recent.mid(0, kRecentKept)));
    }
}

bool ConnectionPopup::webRepl() const
{
    return Transports::needsPassword(port());
}

QString ConnectionPopup::password() const
{
    return webRepl() ? m_password->text() : QString();
}

bool ConnectionPopup::rememberPassword() const
{
    return webRepl() && m_remember->isChecked();
}

QString ConnectionPopup::port() const
{
    return m_portsCombo->currentText().trimmed();
}

int ConnectionPopup::type() const
{
    return m_mcCombo->currentIndex();
}

qint32 ConnectionPopup::baud() const
{
    return m_baudCombo->currentText().toInt();
}

QString ConnectionPopup::serialNumber() const
{
    const int index = m_portsCombo->findText(port());
    return index >= 0 ? m_portsCombo->itemData(index).toString() : QString();
}

void ConnectionPopup::setup(QSerialPort* serialPort, QString* serial) const
{
    serialPort->setPortName(port());
    *serial = serialNumber();
    serialPort->setParity(QSerialPort::NoParity);
    serialPort->setStopBits(QSerialPort::OneStop);
    serialPort->setDataBits(QSerialPort::Data8);
    serialPort->setBaudRate(baud());
    serialPort->setFlowControl(QSerialPort::NoFlowControl);
}

void ConnectionPopup::on_applyButton_clicked()
{
    m_applied = true;
    close();
}

void ConnectionPopup::closeEvent(QCloseEvent* event)
{
    QFrame::closeEvent(event);
    emit done();
}

bool ConnectionPopup::isDevicePath(const QString& text)
{
    return text.startsWith(QLatin1Char('/')) && QFileInfo::exists(text) && !QFileInfo(text).isDir();
}

void ConnectionPopup::updateApply()
{
    const bool password = webRepl();
    m_password->setVisible(password);
    m_remember->setVisible(password);
    m_baudCombo->setVisible(Transports::takesBaudRate(port()));
    adjustSize();
    if (Transports::isNetwork(port())) {
        m_applyButton->setEnabled(Transports::addressProblem(port()).isEmpty() &&
                                  (!password || !m_password->text().isEmpty()));
        return;
    }
    // Typed paths (pseudo-terminals, socat, ser2net) count once they exist.
    m_applyButton->setEnabled(m_portsCombo->count() > 0 || isDevicePath(port()));
}
