// What a client sent: cookies, query and form fields, uploads.
//
// For all functions:
//   Null      any pointer may be null; nothing harmful is done with it.
//   Lists     a function that adds starts a list when given null and gives back the list to use
//             from then on, null while there is nothing in it. The caller owns it and frees it
//             with CGI_free_varlist. A list holds at most 1,000 values; later ones are left out.
//   Decoding  names and values are percent-decoded; a bad escape stands for itself. A name
//             without "=" has the empty value. A pair whose name is empty, or that decodes to a
//             zero byte, is left out. Names are case-sensitive; values of one name keep their
//             order.
//   Threads   no shared state; one list is used by one thread at a time.
#ifndef CGI_H
#define CGI_H

#ifdef __cplusplus
extern "C" {
#endif

struct FCGX_Stream; // the FastCGI kit's stream, from <fcgiapp.h>
typedef struct FCGX_Stream FCGX_Stream;

// A list of names and values, whose inside is the library's own.
typedef struct CGI_varlist CGI_varlist;

// Adds the cookies of one Cookie header (RFC 6265, section 5.4). Pairs end at ";"; blanks around
// a pair are dropped before decoding, and one pair of double quotes around a value. "+" is itself.
CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie);

// Adds the fields of an application/x-www-form-urlencoded body (URL Standard, section 5), read
// from `in`. A null `content_type` counts as that type; a body of any other type stays in the
// stream for the upload calls. A body over 1 MiB, or longer or shorter than `content_length`,
// adds nothing.
CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in);

// Adds the fields of a query string; "+" is a blank.
CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query);

// The first value of `name`, or null. Belongs to the list and lives as long as it does.
char* CGI_lookup(CGI_varlist* list, const char* name);

// All values of `name` with a null behind the last, or null when there is none. The array and the
// texts belong to the list and live as long as it does.
char** CGI_lookup_all(CGI_varlist* list, const char* name);

// Frees the list, and with it every text that it has given. Null does nothing.
void CGI_free_varlist(CGI_varlist* list);

// `text` with every byte but letters, digits, "-", "_", ".", "~" and the characters of `keep`
// escaped as %XX. The caller frees the result with free(3); null for a null `text` or without
// memory.
char* CGI_encode_url(const char* text, const char* keep);

// Reads a multipart/form-data body (RFC 7578) as it arrives, in memory that does not grow with
// it. Text fields, of at most 64 KiB each and 1 MiB together, are added under their names as they
// arrive, and stay when the upload fails later; their text is taken as it is, names are
// percent-decoded. The first file part is written to a file of another name in the folder of `path`
// and put in place with rename(2) when the closing boundary has arrived and the data is on the
// disk. Then, and only then, the part's field name is added, with the base name of the client's
// file name as its value: a servlet knows that an upload is complete by looking its field up (and,
// since a client may send a text field of that name instead, that it has a file by looking at
// `path`). On any failure (a bad body, an early end, a full disk) nothing stands at `path` that was
// not there before.
CGI_varlist* CGI_fileupload(CGI_varlist* list, const char* content_type, const char* path,
                            FCGX_Stream* in);

// The same into `buffer` of `size` bytes. *received is the count of bytes placed, 0 on any
// failure, a part larger than the buffer included.
CGI_varlist* CGI_fileupload_data(CGI_varlist* list, const char* content_type, char* buffer,
                                 unsigned long size, FCGX_Stream* in, int* received);

// Reads raw body bytes: the count placed in `buffer`, 0 at the end of the body.
int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in);

#ifdef __cplusplus
}
#endif

#endif
