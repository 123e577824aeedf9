#ifndef KIVO_KIVO_H
#define KIVO_KIVO_H

#include <stdbool.h>
#include <stddef.h>

#include "kivo/Version.h"
#include "kivo/platform/Export.h"

/// Kivo for C, and for every language that can call C: the same one plugin a process as in C++.
///
/// Texts are UTF-8 that ends with a NUL. They are copied, so the caller may free them when the call
/// returns; NULL stands for an absent text. Every function may be called on any thread, neither
/// throws nor is a cancellation point, and does nothing in a forked child. An operation returns at
/// once, runs in the background and ends with one line; it does nothing before kivo_initialise().

// NOLINTBEGIN(modernize-use-using,readability-identifier-naming): C, in C's own style.

#if defined(__cplusplus)
#define KIVO_NOEXCEPT noexcept
extern "C" {
#else
#define KIVO_NOEXCEPT
#endif

/// One value of a notification's payload, such as {"notification", "image", "https://…"}.
typedef struct kivo_payload_entry {
    const char* section;
    const char* key;
    const char* value;
} kivo_payload_entry;

/// Receives one line of `length` bytes, without its line feed; a NUL that is not counted follows. A
/// token or an address within it is as the server or the notification gave it, control characters
/// and line feeds included. The line is valid during the call. Called for one line at a time, on a
/// thread of Kivo's own, never under a lock.
typedef void (*kivo_line_callback)(const char* line, size_t length, void* context);

/// The library's version, such as "1.0.0". The text is never freed.
KIVO_EXPORT const char* kivo_version(void) KIVO_NOEXCEPT;

/// Sets the host application's identifier, such as "com.example.app". The first call counts; it
/// belongs before kivo_initialise(), since the first request of a host without an identifier aborts
/// the process. NULL is ignored.
KIVO_EXPORT void kivo_set_bundle_identifier(const char* identifier) KIVO_NOEXCEPT;

/// Writes every later line, with a line feed, to `descriptor` instead of standard output; -1
/// restores standard output. This is the way to take the lines for a language with a runtime of its
/// own: the other end of a pipe is read where and when the language likes. Kivo writes to a
/// duplicate, so the caller may close its own descriptor. A pipe's reader sees the end of it once
/// another output is set. A descriptor that cannot be duplicated is ignored. A reader that is gone
/// costs the lines and nothing else; one that is slow holds up other lines, and operations too once
/// 1 MiB of lines is queued. Lines that are still queued at exit are lost.
KIVO_EXPORT void kivo_set_output_descriptor(int descriptor) KIVO_NOEXCEPT;

/// Passes every later line to `callback`, with `context`, instead of standard output; NULL restores
/// standard output. Whenever another output is set, by this function or by
/// kivo_set_output_descriptor(), the call returns only after the previous callback has returned
/// from all its calls, so its context may then be freed. There is one exception: a call made from
/// within the callback does not wait. The caller must hold no lock for which the callback waits,
/// such as an interpreter's. A callback that is slow holds up what a slow descriptor does.
KIVO_EXPORT void kivo_set_output_callback(kivo_line_callback callback, void* context) KIVO_NOEXCEPT;

/// Makes the plugin and starts SDK authentication in the background. Returns whether there is a
/// plugin: false for a NULL key, without memory or threads (a later call tries again) and in a
/// forked child of a process without a plugin. A later call prints "Kivo already initialized",
/// changes nothing and returns true.
KIVO_EXPORT bool kivo_initialise(const char* api_key, bool is_production) KIVO_NOEXCEPT;

/// Authenticates the user. Any text may be absent.
KIVO_EXPORT void kivo_set_user(const char* country, const char* phone, const char* email,
                               const char* name) KIVO_NOEXCEPT;

/// Sends the device's push token. NULL is ignored.
KIVO_EXPORT void kivo_update_device_token(const char* token) KIVO_NOEXCEPT;

/// Sends whether the user consents to notifications.
KIVO_EXPORT void kivo_set_notification_permission(bool has_permission) KIVO_NOEXCEPT;

/// More entries than a payload has; a larger count is taken for a mistake.
#define KIVO_MAX_PAYLOAD_ENTRIES 65536

/// Loads, once, the image that an incoming notification names under "notification" / "image".
/// `payload` points to `count` entries; an entry with a NULL is left out, and of two with the same
/// section and key the first counts. NULL is a payload without entries. A count above
/// KIVO_MAX_PAYLOAD_ENTRIES, such as a negative number, makes the call do nothing.
KIVO_EXPORT void kivo_on_message_received(const kivo_payload_entry* payload,
                                          size_t count) KIVO_NOEXCEPT;

/// Ends the user's session at the backend.
KIVO_EXPORT void kivo_unset_user(void) KIVO_NOEXCEPT;

/// Blocks until no operation is running and what they stored is on disk, `milliseconds` at most.
/// Returns whether that state was reached; false in a forked child. Not for use in a callback.
KIVO_EXPORT bool kivo_wait_until_idle(int milliseconds) KIVO_NOEXCEPT;

#undef KIVO_NOEXCEPT

#if defined(__cplusplus)
}
#endif

// NOLINTEND(modernize-use-using,readability-identifier-naming)

#endif
