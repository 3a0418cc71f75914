/**
 * @file
 * The list and the dictionary as a C program uses them. Each function returns 0, or the line of the first
 * check that did not hold.
 */
#ifndef UT_CONTAINERS_IN_C_H
#define UT_CONTAINERS_IN_C_H

#ifdef __cplusplus
extern "C" {
#endif

int c_list_owns_copies(void);
int c_list_walks_finds_and_indexes(void);
int c_list_is_copied(void);
int c_dict_keeps_what_it_is_given(void);
int c_dict_owns_copies(void);
int c_dict_clears_in_constant_time(void);

#ifdef __cplusplus
}
#endif

#endif
