/*
 * The management document library of the platform under libqdt_util. The library only declares these symbols;
 * whoever links it defines them.
 */
#ifndef PLATFORM_OMCC_H_
#define PLATFORM_OMCC_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a management handler receives. */
typedef struct omcc_request omcc_request;

/* Read the request's parameter `name`; 0 on success, else the output is untouched. The text stays the
 * request's. */
int32_t omcc_parse_str(omcc_request *request, const char *name, const char **text);
int32_t omcc_parse_uint(omcc_request *request, const char *name, uint64_t *value);
int32_t omcc_parse_bool(omcc_request *request, const char *name, uint8_t *value);

typedef struct omcc_doc omcc_doc;
typedef struct omcc_node omcc_node;

/* A new document, its root, and a new node at `path` below `parent`; null on failure. */
omcc_doc *omcc_new_doc(void);
omcc_node *omcc_doc_root(omcc_doc *doc);
omcc_node *omcc_new_node(omcc_node *parent, const char *path, int32_t kind);

/* Adds a leaf with a text value. 0 on success; -1 on failure, also for a null node. */
int32_t omcc_new_leaf_str(omcc_node *node, const char *name, const char *value);

/* The document as heap text, which its owner releases with free_ex. */
char *omcc_format_doc(omcc_doc *doc, int32_t mode);
void omcc_free_doc(omcc_doc *doc);

#ifdef __cplusplus
}
#endif

#endif /* PLATFORM_OMCC_H_ */
