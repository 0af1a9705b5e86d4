#include "II18n.h"

namespace tvl::updater {

II18n::II18n(QObject* parent)
    : QObject(parent)
{
}

II18n::~II18n() = default;

} // namespace tvl::updater
