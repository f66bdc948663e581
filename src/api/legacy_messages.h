// The texts the legacy exports print on standard output, made from the
// engines' typed errors. Hosts of the legacy interface parse these lines,
// so their wording (and the GBK bytes) never change.
#pragma once

#include <iostream>
#include <string>

#include "api/gbk_texts.h"
#include "common/error.h"

namespace kestrel::meridian::api {

/// Prints one line and flushes, as every legacy message is printed.
inline void printLine(const std::string& text) {
    std::cout << text << std::endl;
}

/// The head swap's and the aligners' load failures: a file that cannot be
/// opened is named by its kind, a mesh that cannot be opened is passed over
/// in silence, anything else is printed as the engine wrote it.
inline void printModelFileError(const Error& error) {
    switch (error.code) {
        case ErrorCode::cannotOpenCorrespondence:
            printLine("Invalid correspondence file: " + error.path);
            return;
        case ErrorCode::cannotOpenIndexList:
            printLine("Invalid indices file: " + error.path);
            return;
        case ErrorCode::cannotOpenMesh:
            return;
        default:
            printLine(error.message);
    }
}

/// A path that does not exist: the path, then " 路径不存在" (GBK).
inline void printPathMissing(const std::string& path) {
    printLine(path + kGbkPathMissing);
}

/// A file whose content is wrong: the path, then " 不正确" (GBK).
inline void printIncorrect(const std::string& path) {
    printLine(path + kGbkIncorrect);
}

}  // namespace kestrel::meridian::api
