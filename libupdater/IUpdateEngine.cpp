#include "IUpdateEngine.h"

namespace tvl::updater {

IUpdateEngine::IUpdateEngine(QObject* parent)
    : QObject(parent)
{
}

IUpdateEngine::~IUpdateEngine() = default;

} // namespace tvl::updater
