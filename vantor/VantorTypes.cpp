#include "VantorTypes.h"

#include <algorithm>

namespace tvl::vantor {

double Progress::fraction() const
{
    if (bytesTotal <= 0)
        return 0.0;
    return std::clamp(static_cast<double>(bytesDone) / static_cast<double>(bytesTotal), 0.0, 1.0);
}

void registerMetaTypes()
{
    static const bool registered = [] {
        qRegisterMetaType<Progress>("tvl::vantor::Progress");
        qRegisterMetaType<UpdateResultPtr>("tvl::vantor::UpdateResultPtr");
        return true;
    }();
    Q_UNUSED(registered);
}

} // namespace tvl::vantor
