#include "Transport.h"

namespace tvl::vantor {

Transport::Transport(QObject* parent)
    : QObject(parent)
{
}

Transport::~Transport() = default;

} // namespace tvl::vantor
