#pragma once
// A reader of PLY files with the callback interface of Diego Nehab's RPly:
// open, read the header, register one callback per (element, property),
// read, close. Every scalar type, list properties, ASCII and binary data of
// either byte order.
//
// Callbacks receive each value as a double; a list calls its callback once
// for its length (value index -1) and once per value. A callback that
// returns 0 stops the reading, which then fails.
//
// Hostile files fail cleanly: the header's element counts are checked
// against the bytes that follow it (every value takes at least one byte), so
// callers may size arrays by those counts; truncated data, bad numbers and
// unknown keywords make ply_read_header or ply_read return 0 after one call
// of the error callback. The whole file is read into memory at open.
//
// Internal to the library: the names are RPly's, the symbols are not
// exported, so a host may link RPly itself without a clash.

#include <cstddef>

typedef struct t_ply_* p_ply;
typedef struct t_ply_element_* p_ply_element;
typedef struct t_ply_property_* p_ply_property;
typedef struct t_ply_argument_* p_ply_argument;

typedef enum e_ply_type {
    PLY_INT8,
    PLY_UINT8,
    PLY_INT16,
    PLY_UINT16,
    PLY_INT32,
    PLY_UIN32,
    PLY_FLOAT32,
    PLY_FLOAT64,
    PLY_CHAR,
    PLY_UCHAR,
    PLY_SHORT,
    PLY_USHORT,
    PLY_INT,
    PLY_UINT,
    PLY_FLOAT,
    PLY_DOUBLE,
    PLY_LIST
} e_ply_type;

typedef void (*p_ply_error_cb)(p_ply ply, const char* message);
typedef int (*p_ply_read_cb)(p_ply_argument argument);

// Null when the file cannot be read. A null error callback prints to stderr.
p_ply ply_open(const char* name, p_ply_error_cb error_cb, long idata, void* pdata);
// The same over bytes in memory, which must outlive the handle.
p_ply ply_open_from_memory(const void* data, size_t size, p_ply_error_cb error_cb, long idata, void* pdata);
int ply_get_ply_user_data(p_ply ply, void** pdata, long* idata);
int ply_read_header(p_ply ply);
// Returns the element's number of instances, 0 when there is no such
// element or property.
long ply_set_read_cb(p_ply ply, const char* element_name, const char* property_name, p_ply_read_cb read_cb, void* pdata,
                     long idata);
p_ply_element ply_get_next_element(p_ply ply, p_ply_element last);
int ply_get_element_info(p_ply_element element, const char** name, long* ninstances);
p_ply_property ply_get_next_property(p_ply_element element, p_ply_property last);
int ply_get_property_info(p_ply_property property, const char** name, e_ply_type* type, e_ply_type* length_type,
                          e_ply_type* value_type);

// What a read callback is told. Defined here so that the accessors, called
// for every value of a file, cost no call of their own.
struct t_ply_argument_
{
    p_ply_element element = nullptr;
    long instanceIndex = 0;
    p_ply_property property = nullptr;
    long length = 0;
    long valueIndex = 0;
    double value = 0.0;
    void* pdata = nullptr;
    long idata = 0;
};

inline int ply_get_argument_element(p_ply_argument argument, p_ply_element* element, long* instance_index)
{
    if (!argument)
        return 0;
    if (element)
        *element = argument->element;
    if (instance_index)
        *instance_index = argument->instanceIndex;
    return 1;
}

inline int ply_get_argument_property(p_ply_argument argument, p_ply_property* property, long* length, long* value_index)
{
    if (!argument)
        return 0;
    if (property)
        *property = argument->property;
    if (length)
        *length = argument->length;
    if (value_index)
        *value_index = argument->valueIndex;
    return 1;
}

inline int ply_get_argument_user_data(p_ply_argument argument, void** pdata, long* idata)
{
    if (!argument)
        return 0;
    if (pdata)
        *pdata = argument->pdata;
    if (idata)
        *idata = argument->idata;
    return 1;
}

inline double ply_get_argument_value(p_ply_argument argument) { return argument ? argument->value : 0.0; }
int ply_read(p_ply ply);
int ply_close(p_ply ply);
