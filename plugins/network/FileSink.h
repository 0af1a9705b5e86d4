#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QObject>
#include <QtCore/QUrl>

/**
 * Writes one download into "<file>.part" on a thread of its own, keeps the answer's validator
 * in "<file>.part.json" so that a later download of the same address resumes the part, and
 * renames the part to the file once complete. Driven through queued calls; answers with signals.
 */
class FileSink : public QObject
{
    Q_OBJECT

public:
    FileSink(const QString& filePath, const QUrl& url);

    QString partPath() const { return m_filePath + QStringLiteral(".part"); }
    QString metaPath() const { return m_filePath + QStringLiteral(".part.json"); }

public Q_SLOTS:
    /// Looks for a part of an earlier download of the same address: prepared(size, validator),
    /// prepared(0, "") when there is none to resume.
    void prepare();
    /// Starts writing at `offset` (what is kept of the part), remembering `validator`.
    void begin(qint64 offset, const QByteArray& validator);
    void write(const QByteArray& data);
    /// The download is complete: the part becomes the file.
    void commit();
    /// The download failed for now: the part stays for a later resume.
    void keep();
    /// The download failed for good: the part goes.
    void discard();

Q_SIGNALS:
    void prepared(qint64 offset, const QByteArray& validator);
    void failed(const QString& error);
    void committed(bool ok, const QString& error);

private:
    void fail(const QString& error);

    QString m_filePath;
    QUrl m_url;
    QFile m_part;
    bool m_failed = false;
};
