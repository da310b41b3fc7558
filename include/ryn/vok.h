/* Dictionary library: what every ORAX drive product, version and extension card knows.
 *
 * Words used below: a register "type" is its type code and value class, 0..127 (the register
 * letters: K, X, ...); a "kind" word is the same number as it appears in records and slot tags,
 * bits 0..4 the type code and bits 5..6 the value class (VOK_CLASS_...); where a function takes
 * a kind, bits above 6 are ignored. "index" is the register number, "subindex" its element.
 * Command parameter positions ("position", "param") are 0-based; "group" counts parameter groups
 * from 0. Forms: 1 the name, 2 the description.
 * Texts returned (names, descriptions, messages) live as long as the process, also after the
 * dictionary is closed or the family replaced; never free them. A dictionary handle is immutable
 * and may be used by any number of threads; every function may be called from any thread.
 * Queries on a null dictionary, an unknown item or a position out of range answer 0 (false, no
 * value), null for texts, -1 where -1 means "none". */
#ifndef RYN_VOK_H
#define RYN_VOK_H

#include <stdint.h>

#include "ryn/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* An open dictionary: one drive configuration (product, version, card, card version); opaque. */
typedef struct VOK_DICT VOK_DICT;

/* Extension card product that opens the drive-only dictionary (with card version 0). */
#define VOK_DRIVE_ONLY 0xFFFFFFFEu
/* Number of register types (kind words 0..127) and of command numbers (0..14591). */
#define VOK_TYPE_COUNT 128
#define VOK_COMMAND_COUNT 14592
/* Register index that names a whole register type. */
#define VOK_WHOLE_TYPE 0xFFFEu

/* Display format codes of registers and command parameters. */
#define VOK_FORMAT_HEX 0
#define VOK_FORMAT_DECIMAL 3
#define VOK_FORMAT_STRING 4
#define VOK_FORMAT_FLOAT 5
#define VOK_FORMAT_IP 13

/* Error codes of the dictionary library. */
#define VOK_ESYSTEM (-414)     /* out of memory */
#define VOK_EBADPARAM (-415)   /* a bad argument */
#define VOK_EBADDRVPROD (-416) /* unknown drive product */
#define VOK_EBADEXTPROD (-417) /* unknown extension card product */
#define VOK_EBADDRVVER (-418)  /* incompatible drive version */
#define VOK_EBADEXTVER (-419)  /* incompatible extension card version */
#define VOK_EBUSY (-420)       /* a family cannot be replaced while dictionaries are open */
#define VOK_EFILE (-421)       /* a family file cannot be read */
#define VOK_EFORMAT (-422)     /* a family description is not valid JSON */
#define VOK_EFAMILY (-423)     /* a family description is inconsistent */

/* Fixed English message of a dictionary library code; "unknown error" outside the table. */
RYN_EXPORT const char *vok_translate_error(int code);

/* ---- Families ---- */

/* Replaces the active family by the one described in a JSON file; no dictionary may be open.
 * 0, VOK_EBUSY, VOK_EFILE, VOK_EFORMAT, VOK_EFAMILY or VOK_ESYSTEM; a refused family changes
 * nothing and its message is vok_get_family_error. */
RYN_EXPORT int vok_load_family_file(const char *path);
/* Replaces the active family by the one described in JSON text; no dictionary may be open. */
RYN_EXPORT int vok_load_family_text(const char *json);
/* Makes the embedded ORAX family active again; no dictionary may be open. */
RYN_EXPORT int vok_load_default_family(void);
/* Message of this thread's last refused family load ("file: place: fault"), "" when none. */
RYN_EXPORT const char *vok_get_family_error(void);
/* Source of the active family: its file name, "<text>" or "<embedded ORAX family>". */
RYN_EXPORT const char *vok_get_family_source(void);

/* ---- Opening and closing ---- */

/* Opens the dictionary of a drive configuration (card VOK_DRIVE_ONLY, version 0: drive only).
 * *out is set to null first and to the dictionary on success; close it with vok_close. An
 * ext_product of 0 means no card. A version of 0 is no default: it is VOK_EBADDRVVER like any
 * unknown version. Codes: VOK_EBADPARAM (null out), VOK_EBADDRVPROD, VOK_EBADEXTPROD,
 * VOK_EBADDRVVER, VOK_EBADEXTVER, VOK_ESYSTEM. */
RYN_EXPORT int vok_open(VOK_DICT **out, uint32_t product, uint32_t version, uint32_t ext_product,
                        uint32_t ext_version);
/* Like vok_open, but an unknown drive version leaves *out null and returns 0. */
RYN_EXPORT int vok_open_offline(VOK_DICT **out, int reserved, uint32_t product, uint32_t version,
                                uint32_t ext_product, uint32_t ext_version);
/* Closes a dictionary and nulls the handle; texts handed out before stay valid. A null handle or
 * *dict is ignored. */
RYN_EXPORT void vok_close(VOK_DICT **dict);

/* ---- Products and versions ---- */

/* Default version of a drive product, 0 when the product is unknown or reserved. */
RYN_EXPORT uint32_t vok_get_default_version(uint32_t product);
/* Whether the family knows this version of a drive product. */
RYN_EXPORT int vok_is_known_version(uint32_t product, uint32_t version);
/* Whether a product belongs to the axis-63 class (motion controllers). */
RYN_EXPORT int vok_is_axis63_product(uint32_t product);
/* Drive product of an open dictionary. */
RYN_EXPORT uint32_t vok_get_drv_product(const VOK_DICT *dict);
/* Drive version of an open dictionary. */
RYN_EXPORT uint32_t vok_get_drv_version(const VOK_DICT *dict);
/* Extension card product of an open dictionary. */
RYN_EXPORT uint32_t vok_get_ext_product(const VOK_DICT *dict);
/* Extension card version of an open dictionary. */
RYN_EXPORT uint32_t vok_get_ext_version(const VOK_DICT *dict);
/* Parses the version text of a register-version line; 0 or VOK_EBADPARAM. */
RYN_EXPORT int vok_string_to_version(const char *text, uint32_t *version);
/* Writes a version as text for a register-version comment; a non-empty title is written first.
 * buffer holds size characters, terminator included; a longer text is cut without notice. */
RYN_EXPORT void vok_version_to_string(char *buffer, int size, uint32_t version, const char *title);
/* Name of a drive product ("ORX-D32"), null when unknown. */
RYN_EXPORT const char *vok_get_product_name(uint32_t product);
/* Name of an extension card product ("IOX-8"), null when unknown. */
RYN_EXPORT const char *vok_get_ext_product_name(uint32_t ext_product);

/* ---- Names (form 1: the name, form 2: the description) ---- */

/* Name (form 1) or description (form 2) of register type 0..127; null when it has none. */
RYN_EXPORT const char *vok_get_type_name(const VOK_DICT *dict, int form, uint32_t type);
/* Alias (form 1) or description (form 2) of a register; null when it has none. */
RYN_EXPORT const char *vok_get_register_name(const VOK_DICT *dict, int form, uint32_t type,
                                             uint32_t index, uint32_t subindex);
/* Name (form 1) or description (form 2) of command 0..14591; null when it has none. */
RYN_EXPORT const char *vok_get_command_name(const VOK_DICT *dict, int form, uint32_t command);
/* Comment of a command record: the register's description for assignment commands, else the
 * command's; form 2 is the description. Null when there is none. */
RYN_EXPORT const char *vok_get_command_comment(const VOK_DICT *dict, int form, uint32_t command,
                                               uint32_t type, uint32_t index, uint32_t subindex);

/* ---- Register types, registers and elements ---- */

/* Dictionary class; 3 makes command 125 always known. */
RYN_EXPORT int vok_get_dictionary_class(const VOK_DICT *dict);
/* Whether a register element exists. */
RYN_EXPORT int vok_register_exists(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                   uint32_t subindex);
/* Whether a register element may be written. */
RYN_EXPORT int vok_register_writable(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                     uint32_t subindex);
/* Whether a register type may be written as a whole (index 0xFFFE). */
RYN_EXPORT int vok_register_type_writable(const VOK_DICT *dict, uint32_t kind);
/* Display format code of a register (VOK_FORMAT_...). */
RYN_EXPORT int vok_get_register_format(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                       uint32_t subindex);
/* Number of elements of a register, 0 when it does not exist. */
RYN_EXPORT int vok_get_register_length(const VOK_DICT *dict, uint32_t kind, uint32_t index);
/* Whether a kind word denotes a vector or matrix register type (kind & 31 is 15 or 16). */
RYN_EXPORT int vok_is_vector_kind(uint32_t kind);
/* Number of register indexes of a type (highest index + 1). */
RYN_EXPORT int vok_get_register_count(const VOK_DICT *dict, uint32_t type);
/* Whether a type is hidden: no aliases, plain in uploads. */
RYN_EXPORT int vok_type_is_hidden(const VOK_DICT *dict, uint32_t type);
/* Register predicate of the download filter mode: the element is user data (writable, not
 * reserved, not factory data, of a type that is neither hidden nor read-only). */
RYN_EXPORT int vok_test_register(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                 uint32_t subindex);
/* Whether a register type exists in this dictionary. */
RYN_EXPORT int vok_type_exists(const VOK_DICT *dict, uint32_t type);
/* Largest element count of the registers of a type. */
RYN_EXPORT int vok_get_subindex_count(const VOK_DICT *dict, uint32_t type);
/* Whether a register index exists. */
RYN_EXPORT int vok_index_exists(const VOK_DICT *dict, uint32_t type, uint32_t index);
/* Whether a register element's value has a conversion to ISO units. */
RYN_EXPORT int vok_register_is_iso(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                   uint32_t subindex);
/* Whether an element is reserved. */
RYN_EXPORT int vok_element_is_reserved(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                       uint32_t subindex);
/* Class (group) name of a register; equal names share one pointer; null when none. */
RYN_EXPORT const char *vok_get_register_class(const VOK_DICT *dict, int form, uint32_t type,
                                              uint32_t index);
/* Row length of a vector or matrix register (the element count of another register). */
RYN_EXPORT int vok_get_register_columns(const VOK_DICT *dict, uint32_t kind, uint32_t index);
/* Row count of a vector or matrix register (1 for a vector and for another register). */
RYN_EXPORT int vok_get_register_rows(const VOK_DICT *dict, uint32_t kind, uint32_t index);

/* ---- Commands and parameters ---- */

/* Whether a command number is known to this dictionary. */
RYN_EXPORT int vok_command_exists(const VOK_DICT *dict, uint32_t command);
/* Number of parameters of a command. */
RYN_EXPORT int vok_get_param_count(const VOK_DICT *dict, uint32_t command);
/* Kind word of a command parameter (position 0-based); bits 5 and 6 give its value class. */
RYN_EXPORT uint32_t vok_get_param_kind(const VOK_DICT *dict, uint32_t command, int position);
/* Whether a parameter is a 32-bit integer. */
RYN_EXPORT int vok_param_is_int32(const VOK_DICT *dict, uint32_t command, int param);
/* Whether a parameter is a 64-bit integer. */
RYN_EXPORT int vok_param_is_int64(const VOK_DICT *dict, uint32_t command, int param);
/* Whether a parameter is a 32-bit float. */
RYN_EXPORT int vok_param_is_float(const VOK_DICT *dict, uint32_t command, int param);
/* Whether a parameter is a 64-bit double. */
RYN_EXPORT int vok_param_is_double(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter minimum as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_param_min_int32(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter maximum as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_param_max_int32(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter minimum as a 64-bit integer. */
RYN_EXPORT int64_t vok_get_param_min_int64(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter maximum as a 64-bit integer. */
RYN_EXPORT int64_t vok_get_param_max_int64(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter minimum as a float. */
RYN_EXPORT float vok_get_param_min_float(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter maximum as a float. */
RYN_EXPORT float vok_get_param_max_float(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter minimum as a double. */
RYN_EXPORT double vok_get_param_min_double(const VOK_DICT *dict, uint32_t command, int param);
/* Parameter maximum as a double. */
RYN_EXPORT double vok_get_param_max_double(const VOK_DICT *dict, uint32_t command, int param);
/* Whether an answer's command number is known to this dictionary: 0 known, -1 unknown.
 * Note the sentinel: 0 means "known" here, unlike vok_command_exists. envelope may be null. */
RYN_EXPORT int vok_find_command(const VOK_DICT *dict, uint32_t command, const void *envelope);
/* Whether a parameter group of a command is a vector (written in brackets). */
RYN_EXPORT int vok_param_is_vector(const VOK_DICT *dict, uint32_t command, int group);
/* Whether a command takes vector parameter groups (a list). */
RYN_EXPORT int vok_command_has_vector_params(const VOK_DICT *dict, uint32_t command);
/* Display format code of a command parameter (0 none). */
RYN_EXPORT int vok_get_param_format(const VOK_DICT *dict, uint32_t command, int position);
/* Whether a command parameter converts to ISO units. */
RYN_EXPORT int vok_get_param_is_iso(const VOK_DICT *dict, uint32_t command, int position);

/* ---- Value types and limits of registers ---- */

/* Whether a register kind holds 32-bit integers. */
RYN_EXPORT int vok_reg_is_int32(const VOK_DICT *dict, uint32_t kind);
/* Whether a register kind holds 64-bit integers. */
RYN_EXPORT int vok_reg_is_int64(const VOK_DICT *dict, uint32_t kind);
/* Whether a register kind holds 32-bit floats. */
RYN_EXPORT int vok_reg_is_float(const VOK_DICT *dict, uint32_t kind);
/* Whether a register kind holds 64-bit doubles. */
RYN_EXPORT int vok_reg_is_double(const VOK_DICT *dict, uint32_t kind);
/* Register element minimum as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_reg_min_int32(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Register element maximum as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_reg_max_int32(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Register element minimum as a 64-bit integer. */
RYN_EXPORT int64_t vok_get_reg_min_int64(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Register element maximum as a 64-bit integer. */
RYN_EXPORT int64_t vok_get_reg_max_int64(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Register element minimum as a float. */
RYN_EXPORT float vok_get_reg_min_float(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                       uint32_t subindex);
/* Register element maximum as a float. */
RYN_EXPORT float vok_get_reg_max_float(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                       uint32_t subindex);
/* Register element minimum as a double. */
RYN_EXPORT double vok_get_reg_min_double(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Register element maximum as a double. */
RYN_EXPORT double vok_get_reg_max_double(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                         uint32_t subindex);
/* Default value of a register element as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_reg_default_int32(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                             uint32_t subindex);
/* Default value as a 64-bit integer; for a double register the bit pattern of the double. */
RYN_EXPORT int64_t vok_get_reg_default_int64(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                             uint32_t subindex);
/* Default value of a register element as a float. */
RYN_EXPORT float vok_get_reg_default_float(const VOK_DICT *dict, uint32_t type, uint32_t index,
                                           uint32_t subindex);
/* Value classes: bits 5 and 6 of a kind word. */
#define VOK_CLASS_INT32 0x00u
#define VOK_CLASS_FLOAT 0x20u
#define VOK_CLASS_INT64 0x40u
#define VOK_CLASS_DOUBLE 0x60u
/* Value class of a kind word: VOK_CLASS_INT32, VOK_CLASS_FLOAT, VOK_CLASS_INT64 or
 * VOK_CLASS_DOUBLE. */
RYN_EXPORT uint32_t vok_value_class(uint32_t kind);
/* Default of a register element of any value class as a record slot's value carries it (32-bit
 * classes in the low 32 bits, the high ones 0); 0, or -1 when the element does not exist. */
RYN_EXPORT int vok_get_reg_default_raw(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                       uint32_t subindex, uint64_t *raw);

/* ---- Enumerations (entries 0..count-1 form a tree of mask and value entries) ---- */

/* Enumeration of a register element, 0 when none. */
RYN_EXPORT int vok_get_reg_enum(const VOK_DICT *dict, uint32_t kind, uint32_t index,
                                uint32_t subindex);
/* Enumeration of a command parameter, 0 when none. */
RYN_EXPORT int vok_get_param_enum(const VOK_DICT *dict, uint32_t command, int param);
/* Number of entries of an enumeration. */
RYN_EXPORT int vok_get_enum_count(const VOK_DICT *dict, int enumeration);
/* Whether an entry of the register's enumeration applies to this register element. */
RYN_EXPORT int vok_enum_entry_for_reg(const VOK_DICT *dict, int entry, uint32_t kind,
                                      uint32_t index, uint32_t subindex);
/* Whether an entry of the parameter's enumeration applies to this command parameter. */
RYN_EXPORT int vok_enum_entry_for_param(const VOK_DICT *dict, int entry, uint32_t command,
                                        int param);
/* Parent entry of an entry, -1 at the top. */
RYN_EXPORT int vok_get_enum_entry_parent(const VOK_DICT *dict, int enumeration, int entry);
/* Whether an entry is a bit-group (mask) entry. */
RYN_EXPORT int vok_enum_entry_is_mask(const VOK_DICT *dict, int enumeration, int entry);
/* Name of an entry ("VELOCITY"), null when unknown. */
RYN_EXPORT const char *vok_get_enum_entry_name(const VOK_DICT *dict, int enumeration, int entry);
/* Name of an enumeration ("OperatingMode"), null when unknown. */
RYN_EXPORT const char *vok_get_enum_name(const VOK_DICT *dict, int enumeration);
/* Entry value as a 32-bit integer. */
RYN_EXPORT int32_t vok_get_enum_value_int32(const VOK_DICT *dict, int enumeration, int entry);
/* Entry value as a 64-bit integer. */
RYN_EXPORT int64_t vok_get_enum_value_int64(const VOK_DICT *dict, int enumeration, int entry);
/* Entry value as a float. */
RYN_EXPORT float vok_get_enum_value_float(const VOK_DICT *dict, int enumeration, int entry);
/* Entry value as a double. */
RYN_EXPORT double vok_get_enum_value_double(const VOK_DICT *dict, int enumeration, int entry);

/* ---- Browsing, for applications and the command-line tool ---- */

/* Name of the active family ("ORAX"), "" when it has none. */
RYN_EXPORT const char *vok_get_family_name(void);
/* Number of drive products of the active family, reserved product numbers included. */
RYN_EXPORT int vok_get_product_count(void);
/* Code of drive product i (0 .. count - 1, ascending); 0 when out of range. */
RYN_EXPORT uint32_t vok_get_product_code(int i);
/* Description of a drive product, null when unknown or without one. */
RYN_EXPORT const char *vok_get_product_description(uint32_t product);
/* Whether a product number is reserved: known to the family, but without versions. */
RYN_EXPORT int vok_is_reserved_product(uint32_t product);
/* Number of versions of a drive product, 0 when unknown. */
RYN_EXPORT int vok_get_product_version_count(uint32_t product);
/* Version i of a drive product (ascending); 0 when out of range. */
RYN_EXPORT uint32_t vok_get_product_version(uint32_t product, int i);
/* Number of extension card products of the active family. */
RYN_EXPORT int vok_get_ext_product_count(void);
/* Code of extension card product i (ascending); 0 when out of range. */
RYN_EXPORT uint32_t vok_get_ext_product_code(int i);
/* Description of an extension card product, null when unknown or without one. */
RYN_EXPORT const char *vok_get_ext_product_description(uint32_t ext_product);
/* Number of versions of an extension card product, 0 when unknown. */
RYN_EXPORT int vok_get_ext_product_version_count(uint32_t ext_product);
/* Version i of an extension card product (ascending); 0 when out of range. */
RYN_EXPORT uint32_t vok_get_ext_product_version(uint32_t ext_product, int i);
/* Default version of an extension card product, 0 when unknown. */
RYN_EXPORT uint32_t vok_get_ext_product_default_version(uint32_t ext_product);
/* Whether an extension card product fits a drive product. */
RYN_EXPORT int vok_ext_fits_product(uint32_t ext_product, uint32_t product);
/* Smallest register index of a type, not below from, that exists; -1 when none. */
RYN_EXPORT int32_t vok_get_next_index(const VOK_DICT *dict, uint32_t type, uint32_t from);
/* Smallest command number, not below from, that the dictionary knows; -1 when none. */
RYN_EXPORT int32_t vok_get_next_command(const VOK_DICT *dict, uint32_t from);
/* Finds a register by its alias (case-insensitive): 0 with its kind and index, or -1.
 * On -1 (no such alias, null arguments) *kind and *index are not written. */
RYN_EXPORT int vok_find_register_alias(const VOK_DICT *dict, const char *alias, uint32_t *kind,
                                       uint32_t *index);
/* Number of the command with this name (case-insensitive), -1 when none. */
RYN_EXPORT int32_t vok_find_command_name(const VOK_DICT *dict, const char *name);
/* Name of a command parameter ("target"), null when it has none. */
RYN_EXPORT const char *vok_get_param_name(const VOK_DICT *dict, uint32_t command, int position);
/* ISO unit code of a register (20 position, 21 velocity, ...), 0 when it has no conversion. */
RYN_EXPORT int vok_get_register_iso_unit(const VOK_DICT *dict, uint32_t kind, uint32_t index);
/* ISO unit code of a command parameter, 0 when it has no conversion. */
RYN_EXPORT int vok_get_param_iso_unit(const VOK_DICT *dict, uint32_t command, int position);
/* Description of an enumeration entry, null when it has none. */
RYN_EXPORT const char *vok_get_enum_entry_description(const VOK_DICT *dict, int enumeration,
                                                      int entry);

#ifdef __cplusplus
}
#endif

#endif
