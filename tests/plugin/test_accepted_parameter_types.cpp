// The parameter types the dispatcher passes to a host method: the 49 value types it knows by
// name, anything ending in "*" or "]", and nothing else.

#include "accepted_parameter_types.h"

#include <QByteArray>

#include <gtest/gtest.h>

#include <iterator>

namespace {

// In the order the dispatcher tests them.
constexpr const char *kAcceptedValueTypes[] = {
    "char", "short", "int", "long", "unsigned char",
    "unsigned short", "unsigned int", "unsigned long", "uchar", "ushort", "uint", "ulong",
    "float", "double", "bool",
    "qint8", "qint16", "qint32", "qint64", "qlonglong",
    "quint8", "quint16", "quint32", "quint64", "qulonglong",
    "Qt::HANDLE",
    "QString", "QStringList", "QByteArray", "QBitArray", "QLatin1String",
    "QChar", "QDate", "QTime", "QDateTime",
    "QSize", "QSizeF", "QPoint", "QPointF", "QLine", "QLineF", "QRect", "QRectF",
    "QUrl", "QLocale", "QRegExp",
    "QEasingCurve", "Qt::GlobalColor", "QVariant",
};
static_assert(std::size(kAcceptedValueTypes) == 49, "49 value types precede the two suffix rules");

bool isListed(const QByteArray &name)
{
    for (const char *listed : kAcceptedValueTypes) {
        if (name == listed)
            return true;
    }
    return false;
}

struct Row
{
    const char *typeName;
    const char *reason;
};

} // namespace

TEST(AcceptedParameterTypes, everyListedValueTypeIsAccepted)
{
    int position = 0;
    for (const char *name : kAcceptedValueTypes) {
        ++position;
        SCOPED_TRACE(testing::Message() << "#" << position << " " << name);
        EXPECT_TRUE(isAcceptedParameterType(QByteArray(name)));
    }
}

TEST(AcceptedParameterTypes, listedNamesMatchExactlyAndCaseSensitively)
{
    for (const char *name : kAcceptedValueTypes) {
        const QByteArray exact(name);
        SCOPED_TRACE(name);
        EXPECT_FALSE(isAcceptedParameterType(exact + '&')) << "a non-const reference";
        EXPECT_FALSE(isAcceptedParameterType(' ' + exact)) << "a leading blank";
        EXPECT_FALSE(isAcceptedParameterType(exact + ' ')) << "a trailing blank";
        EXPECT_FALSE(isAcceptedParameterType(exact + 'X')) << "a longer name";
        const QByteArray shorter = exact.left(exact.size() - 1);
        if (!isListed(shorter)) { // "QSizeF" less its "F" is "QSize", listed in its own right
            EXPECT_FALSE(isAcceptedParameterType(shorter)) << "a shorter name";
        }
        if (exact.toUpper() != exact) {
            EXPECT_FALSE(isAcceptedParameterType(exact.toUpper())) << "upper case";
        }
        if (exact.toLower() != exact) {
            EXPECT_FALSE(isAcceptedParameterType(exact.toLower())) << "lower case";
        }
    }
}

TEST(AcceptedParameterTypes, namesEndingInAStarAreAccepted)
{
    const Row rows[] = {
        {"QObject*", "a host object handed over by pointer"},
        {"unsigned char*", "a raw byte buffer"},
        {"char*", "a C string"},
        {"void*", "an opaque pointer"},
        {"MyStruct*", "a pointer to a host structure the list does not know"},
        {"QString*", "a pointer to a listed type"},
        {"const char*", "a const pointee"},
        {"int**", "a pointer to a pointer"},
        {"*", "the suffix alone"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.typeName << ": " << row.reason);
        EXPECT_TRUE(isAcceptedParameterType(QByteArray(row.typeName)));
    }
}

TEST(AcceptedParameterTypes, namesEndingInABracketAreAccepted)
{
    const Row rows[] = {
        {"int[4]", "a fixed-size array"},
        {"char[]", "an array of unknown size"},
        {"MyStruct[2]", "an array of a host structure"},
        {"]", "the suffix alone"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << row.typeName << ": " << row.reason);
        EXPECT_TRUE(isAcceptedParameterType(QByteArray(row.typeName)));
    }
}

TEST(AcceptedParameterTypes, otherNamesAreRefused)
{
    const Row rows[] = {
        {"QString&", "a non-const reference"},
        {"const QString&", "a const reference as written; Qt normalises it away before the check"},
        {"QObject*&", "a reference to a pointer ends in neither suffix"},
        {"QPolygon", "a Qt class the list does not hold"},
        {"QVariantMap", "a Qt alias the list does not hold"},
        {"QList<int>", "a container other than QStringList"},
        {"MyStruct", "a host structure passed by value"},
        {"", "an empty name"},
        {"qstring", "case matters"},
        {"Int", "case matters"},
        {"unsigned", "not one of the listed spellings"},
        {"QObject* const", "a const pointer ends in neither suffix"},
        {"int[4] ", "a trailing blank after the bracket"},
        {"HANDLE", "only the qualified Qt::HANDLE is listed"},
        {"GlobalColor", "only the qualified Qt::GlobalColor is listed"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "\"" << row.typeName << "\": " << row.reason);
        EXPECT_FALSE(isAcceptedParameterType(QByteArray(row.typeName)));
    }
}

TEST(AcceptedParameterTypes, nullNameIsRefused)
{
    EXPECT_FALSE(isAcceptedParameterType(QByteArray()));
}
