#include "FileSink.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QSaveFile>

#include <cstdio>

FileSink::FileSink(const QString& filePath, const QUrl& url)
    : m_filePath(filePath)
    , m_url(url)
{
}

void FileSink::prepare()
{
    QFile meta(metaPath());
    const qint64 size = QFileInfo(partPath()).size();
    if (size > 0 && meta.open(QIODevice::ReadOnly) && meta.size() < 64 * 1024) {
        const QJsonObject object = QJsonDocument::fromJson(meta.readAll()).object();
        const QByteArray validator = object.value(QStringLiteral("validator")).toString().toUtf8();
        if (object.value(QStringLiteral("url")).toString() == m_url.toString() && !validator.isEmpty()) {
            Q_EMIT prepared(size, validator);
            return;
        }
    }
    Q_EMIT prepared(0, QByteArray());
}

void FileSink::begin(qint64 offset, const QByteArray& validator)
{
    m_part.close();
    m_failed = false;
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    m_part.setFileName(partPath());
    if (!m_part.open(QIODevice::ReadWrite) || !m_part.resize(offset) || !m_part.seek(offset)) {
        fail(tr("Cannot write %1: %2").arg(partPath(), m_part.errorString()));
        return;
    }
    QSaveFile meta(metaPath());
    const QJsonObject object{{QStringLiteral("url"), m_url.toString()},
                             {QStringLiteral("validator"), QString::fromUtf8(validator)}};
    if (!validator.isEmpty()) {
        const QByteArray json = QJsonDocument(object).toJson(QJsonDocument::Compact);
        if (!meta.open(QIODevice::WriteOnly) || meta.write(json) != json.size() || !meta.commit())
            fail(tr("Cannot write %1: %2").arg(metaPath(), meta.errorString()));
    } else {
        QFile::remove(metaPath()); // nothing to resume with: a later download starts afresh
    }
}

void FileSink::write(const QByteArray& data)
{
    if (m_failed)
        return;
    if (m_part.write(data) != data.size())
        fail(tr("Cannot write %1: %2").arg(partPath(), m_part.errorString()));
}

void FileSink::commit()
{
    if (m_failed) {
        Q_EMIT committed(false, m_part.errorString());
        return;
    }
    const bool flushed = m_part.flush();
    m_part.close();
    // rename() replaces an existing file in one step.
    if (!flushed || std::rename(QFile::encodeName(partPath()).constData(), QFile::encodeName(m_filePath).constData()) != 0) {
        Q_EMIT committed(false, tr("Cannot move %1 to %2").arg(partPath(), m_filePath));
        return;
    }
    QFile::remove(metaPath());
    Q_EMIT committed(true, QString());
}

void FileSink::keep()
{
    m_part.close();
}

void FileSink::discard()
{
    m_part.close();
    QFile::remove(partPath());
    QFile::remove(metaPath());
}

void FileSink::fail(const QString& error)
{
    if (m_failed)
        return;
    m_failed = true;
    Q_EMIT failed(error);
}
