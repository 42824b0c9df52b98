/**
 * @file conf_def.h
 * Types that every other header stands on, and the header of a frame.
 */
#ifndef CONF_DEF_H
#define CONF_DEF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Marks what the shared library exports. */
#define CONF_API __attribute__((visibility("default")))

/* A function in a header is one in a C++ program, so that inline functions may call it. */
#ifdef __cplusplus
#define CONF_INLINE inline
#else
#define CONF_INLINE static inline /**< before a function that stands in a header */
#endif

/* Flexible arrays are C; C++ compilers know them as an extension, which a pedantic user need not
   hear. */
#ifdef __cplusplus
#define CONF_FLEXIBLE_BEGIN \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wpedantic\"")
#define CONF_FLEXIBLE_END _Pragma("GCC diagnostic pop")
#else
#define CONF_FLEXIBLE_BEGIN /**< before a structure that ends with an array of any length */
#define CONF_FLEXIBLE_END   /**< behind it */
#endif

typedef uint8_t u8_t;   /**< 8 bits without a sign */
typedef uint16_t u16_t; /**< 16 bits without a sign */
typedef uint32_t u32_t; /**< 32 bits without a sign */

/**
 * A truth value of 4 bytes in both languages.
 *
 * C gets an enumeration with `false` and `true`, unless <stdbool.h> or the language has made those
 * words its own already. C++ gets an integer of the same size, which takes its `true` and `false`.
 */
#if defined(__cplusplus) || defined(__bool_true_false_are_defined) || \
    (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202000L)
typedef unsigned int bool_t;
#else
typedef enum _bool_t { false = 0, true = 1 } bool_t;
#endif

/** First word of every frame on a stream socket. */
#define CONF_MSG_MAGIC 0xFEDCBAFFU

/** Longest body, in bytes (128 MiB), that a receiver takes: a longer one is no frame. */
#define CONF_MSG_MAX_LENGTH 134217728U

/**
 * The 12 bytes ahead of every message on a stream socket; the body follows directly.
 *
 * All fields are in the host's byte order: both ends of a connection are on one host. A header may
 * lie at any address in a buffer, so copy it out before reading its fields.
 */
typedef struct _msg_head {
    u32_t magic;  /**< CONF_MSG_MAGIC */
    u32_t length; /**< bytes of body behind the header */
    u16_t seq;    /**< the sender's sequence number; receivers do not look at it */
    u16_t format; /**< always 0 */
} msg_head_t;

#ifdef __cplusplus
}
#endif

#endif
