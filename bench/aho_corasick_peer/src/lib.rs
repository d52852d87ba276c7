//! The crate's DFA behind three C functions, for the benchmark only.

use aho_corasick::{AhoCorasick, AhoCorasickBuilder};
use std::slice::from_raw_parts;

/// Overlapping matches, every transition stored, 32-bit states: its fastest form.
#[no_mangle]
pub unsafe extern "C" fn peer_new(
    patterns: *const *const u8,
    lengths: *const usize,
    count: usize,
    nocase: i32,
) -> *mut AhoCorasick<u32> {
    let all: Vec<&[u8]> = (0..count)
        .map(|i| from_raw_parts(*patterns.add(i), *lengths.add(i)))
        .collect();
    match AhoCorasickBuilder::new()
        .dfa(true)
        .ascii_case_insensitive(nocase != 0)
        .build_with_size::<u32, _, _>(&all)
    {
        Ok(made) => Box::into_raw(Box::new(made)),
        Err(_) => std::ptr::null_mut(),
    }
}

#[no_mangle]
pub unsafe extern "C" fn peer_count(
    peer: *const AhoCorasick<u32>,
    text: *const u8,
    length: usize,
) -> u64 {
    (*peer)
        .find_overlapping_iter(from_raw_parts(text, length))
        .count() as u64
}

#[no_mangle]
pub unsafe extern "C" fn peer_free(peer: *mut AhoCorasick<u32>) {
    drop(Box::from_raw(peer));
}
