#include "services/BuiltInFileTypes.h"

#include "services/CFileExt.h"

namespace tev
{
// Three rows are odd on purpose. ".wmv" is in two: the MPG4 type, which comes first, is its default. The Flash video has the
// class of QuickTime and merges into it. Of the archives only Zip can be loaded or saved.
const BuiltInFileType kBuiltInFileTypes[kBuiltInFileTypeCount] = {
    {"Bmp files", ".bmp|.dib", XFourCharacterCode("BMP "), 0x10011},
    {"Rla files", ".rla|.rpf", XFourCharacterCode("RLA "), 0x10001},
    {"Icon files", ".ico", XFourCharacterCode("ICON"), 0x10001},
    {"Z-Buffer files", ".tev", XFourCharacterCode("ZFIL"), 0x1000B},
    {"Zpic softimage files", ".zpic", XFourCharacterCode("ZPIC"), 0x10041},
    {"Pic softimage files", ".pic", XFourCharacterCode("PIC "), 0x10001},
    {"Iff files", ".iff", XFourCharacterCode("IFF "), 0x10011},
    {"Cursor files", ".cur|.ani", XFourCharacterCode("CURS"), 0x10001},
    {"HDR files", ".hdr", XFourCharacterCode("HDR "), 0x10001},
    {"3ds Max files (Dynamic Data Format Exchange)", ".max", XFourCharacterCode("3MAX"), 0x41013},
    {"XSI Softimage files", ".xsi", XFourCharacterCode("XSI "), 0x40013},
    {"Maya files (Dynamic Data Format Exchange)", ".mb|.ma", XFourCharacterCode("MAYA"), 0x40013},
    {"Ferngate 3D Format files", ".3dif", XFourCharacterCode("3DIF"), 0x40013},
    {"Windows audio files", ".wav", XFourCharacterCode("AIWV"), 0x80011},
    {"Windows Media audio files", ".wma", XFourCharacterCode("AIWM"), 0x80011},
    {"MPEG Audio files", ".mp3|.mp2|.mpa", XFourCharacterCode("AIMG"), 0x80011},
    {"Macintosh audio files", ".aif|.aifc|.aiff", XFourCharacterCode("AIMC"), 0x80011},
    {"Unix audio files", ".au", XFourCharacterCode("AIUX"), 0x80011},
    {"Midi files", ".mid|.rmi|.midi", XFourCharacterCode("MIDI"), 0x80011},
    {"Flash files", ".swf", XFourCharacterCode("FLAS"), 0x230011},
    {"Html files", ".htm|.html|.htx|.asp|.alx|.stm|.shtml|.aspx", XFourCharacterCode("IHTM"), 0x210011},
    {"Avi files", ".avi", XFourCharacterCode("AVI "), 0x100113},
    {"MPG4 files", ".mpeg|.mpg|.mp4|.m2v|.m4v|.wmv", XFourCharacterCode("MPG4"), 0x100004},
    {"Windows Media Video files", ".wmv", XFourCharacterCode("WMV "), 0x100004},
    {"QuickTime files", ".mov", XFourCharacterCode("MOV "), 0x100004},
    {"Flash video files", ".flv", XFourCharacterCode("MOV "), 0x100004},
    {"Zip files", ".zip", XFourCharacterCode("ZIP "), 0x400003},
    {"Rar files", ".rar", XFourCharacterCode("RAR "), 0x400000},
    {"Tar files", ".tar", XFourCharacterCode("TAR "), 0x400000},
    {"7-zip files", ".7z", XFourCharacterCode("ZIP7"), 0x400000},
    {"gz files", ".gz", XFourCharacterCode("GZ  "), 0x400000},
};
} // namespace tev
