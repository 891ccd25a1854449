#pragma once

/// How the helper programs and the disk service end; their manual pages list the same.
enum class ExitCode {
    Success = 0,
    Failure = 1, ///< The work was not done, or not all of it.
    Usage = 2,   ///< The arguments are wrong; nothing was touched.
};
