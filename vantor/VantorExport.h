#pragma once

#include <QtCore/qglobal.h>

#if defined(VANTOR_LIBRARY)
#  define VANTOR_EXPORT Q_DECL_EXPORT
#else
#  define VANTOR_EXPORT Q_DECL_IMPORT
#endif
