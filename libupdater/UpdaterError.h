#pragma once

#include <libupdater/LibupdaterExport.h>

#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QSharedData>
#include <QtCore/QSharedDataPointer>
#include <QtCore/QString>

namespace tvl::updater {

/**
 * The content of an error, shared by every copy of an UpdaterError.
 *
 * A plugin that wants to compute its texts lazily, or to attach details, derives from this
 * class and hands an instance to UpdaterError(IUpdaterErrorPrivate*); the error deletes it
 * through the virtual destructor when the last copy goes.
 */
class LIBUPDATER_EXPORT IUpdaterErrorPrivate : public QSharedData
{
public:
    IUpdaterErrorPrivate() = default;
    virtual ~IUpdaterErrorPrivate();

    virtual QString text() const = 0;
    virtual QString html() const = 0;
    /// The full code: level, category and type bits (see UpdaterError).
    virtual quint32 errorCode() const = 0;
    /// Extra information for support; a null string unless a subclass has some.
    virtual QString details() const;

protected:
    IUpdaterErrorPrivate(const IUpdaterErrorPrivate& other) = default;
    IUpdaterErrorPrivate& operator=(const IUpdaterErrorPrivate&) = delete;
};

} // namespace tvl::updater

/*
 * Copies of an error always share one content object, and the content is abstract, so it
 * cannot be cloned. UpdaterError only ever reads through its pointer; should anything still
 * ask the pointer to detach, this keeps the object shared instead of copying it.
 */
template<>
inline tvl::updater::IUpdaterErrorPrivate* QSharedDataPointer<tvl::updater::IUpdaterErrorPrivate>::clone()
{
    return const_cast<tvl::updater::IUpdaterErrorPrivate*>(constData());
}

namespace tvl::updater {

/**
 * The error value of the launcher: a 32-bit code, a text, an HTML text and optional details.
 *
 * The code has three fields: the level (LevelMask, a 4-bit number kept in place, not shifted),
 * one or more category bits (CategoryMask, see ErrorCategoryE) and the error's own number
 * within its category (TypeMask). Users and support see it as errorId(), e.g. "U04010400".
 *
 * Copies are cheap and share their content. reclassify() changes only the value it is called
 * on: other copies keep their code.
 */
class LIBUPDATER_EXPORT UpdaterError
{
    Q_GADGET

public:
    /// Categories of an error; single bits of the category field, so they can be combined.
    enum ErrorCategoryE {
        UnknownErrorCategory = 0x00010000,
        UpdateErrorCategory = 0x00020000,
        GameErrorCategory = 0x00040000,
        InstallerErrorCategory = 0x00080000
    };
    Q_ENUM(ErrorCategoryE)

    /// Severity levels, kept in place in the level field. The library itself only ever sets
    /// DefaultLevel: to every error whose code comes without a level.
    enum Level : quint32 {
        DefaultLevel = 0x04000000
    };

    /// The fields of an error code.
    enum Mask : quint32 {
        LevelMask = 0x0F000000,
        CategoryMask = 0x00FF0000,
        TypeMask = 0x0000FFFF
    };

    /// A null error: no text, no html, code 0.
    UpdaterError();
    /// An error of unknown category, code 0x04010400.
    UpdaterError(const QString& text, const QString& html);
    /// An error with the given code; DefaultLevel is added when the code has no level bits.
    UpdaterError(int code, const QString& text, const QString& html);
    /// Takes over a content object of the caller's making (see IUpdaterErrorPrivate).
    explicit UpdaterError(IUpdaterErrorPrivate* content);

    UpdaterError(const UpdaterError& other);
    UpdaterError& operator=(const UpdaterError& other);
    ~UpdaterError();

    QString text() const;
    QString html() const;
    QString details() const;

    /// The content's code, or its type bits combined with the reclassification word if set.
    quint32 errorCode() const;
    quint32 level() const;
    quint32 category() const;
    /// The type bits of the content's own code; a reclassification never changes them.
    quint32 type() const;

    /// "U" followed by errorCode() as eight upper-case hexadecimal digits.
    QString errorId() const;

    /// True when both text() and html() are empty.
    bool isNull() const;

    /**
     * Overrides the level and category of this value: errorCode() becomes the type bits ORed
     * with `code`. The word is stored as it is, so pass only level and category bits; 0 undoes
     * the reclassification.
     */
    void reclassify(unsigned int code);

private:
    QSharedDataPointer<IUpdaterErrorPrivate> d;
    quint32 reclassification = 0;
};

/// Registers UpdaterError with the meta-type system under "tvl::updater::UpdaterError", so
/// that it travels through queued connections. Cheap after the first call; returns the id.
LIBUPDATER_EXPORT int registerUpdaterErrorMetaType();

} // namespace tvl::updater

Q_DECLARE_METATYPE(tvl::updater::UpdaterError)
