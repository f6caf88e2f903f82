#include "mcdirmodel.h"

#include <QJsonObject>

namespace {
constexpr int kKiloLimit = 1230; // below this, sizes show in plain bytes
constexpr int kMegaLimit = 1048576;
} // namespace

MCDirModel::MCDirModel(QObject* parent) : QAbstractTableModel(parent) {}

QVariant MCDirModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    if (section == 0)
        return tr("Name");
    if (section == 1)
        return tr("Size");
    return {};
}

int MCDirModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_items.size();
}

int MCDirModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : 2;
}

QVariant MCDirModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_items.size())
        return {};
    const Item& item = m_items.at(index.row());
    if (role == Qt::DecorationRole && index.column() == 0)
        return m_decoration ? m_decoration(item.isDir) : QVariant();
    if (role == Qt::DisplayRole) {
        if (index.column() == 0)
            return item.name;
        if (index.column() == 1)
            return item.size >= 1 ? humanReadableSize(item.size) : QString();
    }
    return {};
}

Qt::ItemFlags MCDirModel::flags(const QModelIndex& index) const
{
    // Rows are deliberately neither selectable nor editable.
    return index.isValid() ? Qt::ItemIsEnabled : Qt::NoItemFlags;
}

bool MCDirModel::isDir(const QModelIndex& index) const
{
    return index.isValid() && index.row() < m_items.size() && m_items.at(index.row()).isDir;
}

QString MCDirModel::path(const QModelIndex& index) const
{
    return index.isValid() && index.row() < m_items.size() ? m_items.at(index.row()).name : QString();
}

QString MCDirModel::fullPath(const QModelIndex& index) const
{
    return index.isValid() && index.row() < m_items.size() ? m_path + m_items.at(index.row()).name : QString();
}

bool MCDirModel::exists(const QString& name, bool dir) const
{
    for (const Item& item : m_items)
        if (item.isDir == dir && item.name == name)
            return true;
    return false;
}

void MCDirModel::clear()
{
    if (m_items.isEmpty())
        return;
    beginRemoveRows(QModelIndex(), 0, m_items.size() - 1);
    m_items.clear();
    endRemoveRows();
}

void MCDirModel::appendItems(const QList<Item>& items)
{
    if (items.isEmpty())
        return;
    beginInsertRows(QModelIndex(), m_items.size(), m_items.size() + items.size() - 1);
    m_items.append(items);
    endInsertRows();
}

void MCDirModel::append(const QStringList& names, bool dir)
{
    QList<Item> items;
    for (const QString& name : names)
        items.append({name, dir, -1});
    appendItems(items);
}

void MCDirModel::appendExt(const QJsonArray& entries, bool dir, const QString& nameKey, const QString& sizeKey)
{
    QList<Item> items;
    for (const QJsonValue& value : entries) {
        const QJsonObject entry = value.toObject();
        items.append({entry.value(nameKey).toString(), dir, entry.value(sizeKey).toInt(-1)});
    }
    appendItems(items);
}

void MCDirModel::setDirPath(const QString& path)
{
    m_path = path.endsWith(QLatin1Char('/')) ? path : path + QLatin1Char('/');
    emit dirPathChanged(m_path);
}

QString MCDirModel::humanReadableSize(int size)
{
    if (size < 1)
        return QString();
    if (size <= kKiloLimit)
        return QString::number(size);
    if (size <= kMegaLimit)
        return QStringLiteral("%1kB").arg(size / 1024.0, 0, 'f', 1);
    return QStringLiteral("%1Mb").arg(size / 1048576.0, 0, 'f', 1);
}
