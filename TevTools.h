#pragma once

// Every public header of the library. The build reads this list: what stands here is installed.

#include "core/CExLCString.h"
#include "core/CStdioFileEx.h"
#include "core/CSwitchLocale.h"
#include "core/CXArchive.h"
#include "core/CXArchiveException.h"
#include "core/CXException.h"
#include "core/CXFile.h"
#include "core/CXFileException.h"
#include "core/CXInternetException.h"
#include "core/CXMemFile.h"
#include "core/CXObject.h"
#include "core/CXStdioFile.h"
#include "core/CXTString.h"
#include "core/InvalidParameter.h"
#include "core/LittleEndian.h"
#include "core/TevTypes.h"
#include "core/TextEncoding.h"
#include "core/ThreadException.h"
#include "core/XCA2W.h"
#include "ui/Language.h"
