//! A host in Rust: every operation once. With Kivo installed: rustc --edition 2021 host.rs -l kivo

use std::ffi::{c_char, c_int, CStr, CString};
use std::ptr::null;

mod c {
    use super::*;

    #[repr(C)]
    pub struct PayloadEntry {
        pub section: *const c_char,
        pub key: *const c_char,
        pub value: *const c_char,
    }

    extern "C" {
        pub fn kivo_version() -> *const c_char;
        pub fn kivo_set_bundle_identifier(identifier: *const c_char);
        pub fn kivo_initialise(api_key: *const c_char, is_production: bool) -> bool;
        pub fn kivo_set_user(
            country: *const c_char,
            phone: *const c_char,
            email: *const c_char,
            name: *const c_char,
        );
        pub fn kivo_update_device_token(token: *const c_char);
        pub fn kivo_set_notification_permission(has_permission: bool);
        pub fn kivo_on_message_received(payload: *const PayloadEntry, count: usize);
        pub fn kivo_unset_user();
        pub fn kivo_wait_until_idle(milliseconds: c_int) -> bool;
    }
}

fn text(value: &str) -> CString {
    CString::new(value).expect("a text without NUL")
}

/// The one plugin of this process.
struct Kivo;

impl Kivo {
    fn initialise(identifier: &str, api_key: &str) -> Option<Kivo> {
        unsafe {
            c::kivo_set_bundle_identifier(text(identifier).as_ptr());
            c::kivo_initialise(text(api_key).as_ptr(), false).then_some(Kivo)
        }
    }

    fn version(&self) -> &'static str {
        unsafe { CStr::from_ptr(c::kivo_version()) }.to_str().unwrap_or("")
    }

    fn set_user(&self, email: &str, name: &str) {
        let (email, name) = (text(email), text(name));
        unsafe { c::kivo_set_user(null(), null(), email.as_ptr(), name.as_ptr()) }
    }

    fn update_device_token(&self, token: &str) {
        unsafe { c::kivo_update_device_token(text(token).as_ptr()) }
    }

    fn set_notification_permission(&self, granted: bool) {
        unsafe { c::kivo_set_notification_permission(granted) }
    }

    fn on_message_received(&self, section: &str, key: &str, value: &str) {
        let texts = [text(section), text(key), text(value)];
        let [section, key, value] = [0, 1, 2].map(|index: usize| texts[index].as_ptr());
        unsafe { c::kivo_on_message_received(&c::PayloadEntry { section, key, value }, 1) }
    }

    fn unset_user(&self) {
        unsafe { c::kivo_unset_user() }
    }

    fn wait(&self) -> bool {
        unsafe { c::kivo_wait_until_idle(60_000) }
    }
}

fn main() {
    let kivo = Kivo::initialise("com.example.rust", "my-api-key").expect("memory and threads");
    println!("Kivo {}", kivo.version());
    kivo.set_user("ana@example.com", "Ana");
    kivo.wait(); // The calls below need the user.
    kivo.update_device_token("push-token");
    kivo.set_notification_permission(true);
    kivo.on_message_received("notification", "title", "Hello");
    kivo.wait();
    kivo.unset_user();
    assert!(kivo.wait());
}
