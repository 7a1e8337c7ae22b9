#pragma once

/** Whether a sanitizer watches this build: it keeps freed memory and takes many times as long. */
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#elif defined(__has_feature)
inline constexpr bool kSanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
inline constexpr bool kSanitized = false;
#endif

/** Whether the build runs so slowly that a test which repeats itself with other dice does so less often. */
inline constexpr bool kSlow = kSanitized || SENVO_EMULATED;
