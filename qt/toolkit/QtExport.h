#pragma once

#include <QtGlobal>

#if defined(TEVTOOLS_QT_BUILDING)
#define TEVTOOLS_QT_API Q_DECL_EXPORT
#else
#define TEVTOOLS_QT_API Q_DECL_IMPORT
#endif
