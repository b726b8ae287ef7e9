// Decodes what a client sent: cookies, query and form fields, uploads.
//
// For all functions:
//   Null      any pointer may be null; nothing harmful is done with it.
//   Lists     a function that adds values starts a list when `list` is null, and returns the list
//   to
//             use from then on (null while it is empty). The caller owns that list and frees it
//             with CGI_free_varlist(). A list holds at most 1,000 values; later ones are left out.
//   Decoding  names and values are percent-decoded; a bad escape stands for itself. A name
//             without "=" has the empty value. A pair whose name is empty, or that decodes to a
//             zero byte, is left out. Names are case-sensitive; values of one name keep their
//             order.
//   Failure   without memory a list stays as it was.
//   Threads   no shared state; only one thread at a time may use a list.
#ifndef CGI_H
#define CGI_H

#ifdef __cplusplus
extern "C" {
#endif

struct FCGX_Stream; // a stream of libfcgi, from <fcgiapp.h>
typedef struct FCGX_Stream FCGX_Stream;

// A list of names and values. Its members are private to the library.
typedef struct CGI_varlist CGI_varlist;

// Adds the cookies of one Cookie header (RFC 6265, section 5.4). Pairs end at ";". Blanks around a
// pair and one pair of double quotes around a value are dropped before decoding. "+" stands for
// itself.
CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie);

// Adds the fields of an application/x-www-form-urlencoded body (URL Standard, section 5), read
// from `in`; "+" stands for a blank. A null `content_type` counts as that type; a body of any other
// type stays in the stream for the upload functions. A body over 1 MiB, or one that is longer or
// shorter than `content_length`, adds nothing.
CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in);

// Adds the fields of a query string (URL Standard, section 5); "+" stands for a blank.
CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query);

// Returns the first value of `name`, or null. It belongs to the list and lives as long as the list
// does.
char* CGI_lookup(CGI_varlist* list, const char* name);

// Returns an array of all values of `name` with a null behind the last one, or null when there are
// none. The array and the values belong to the list and live as long as the list does.
char** CGI_lookup_all(CGI_varlist* list, const char* name);

// Frees the list, and with it every value and array that it has returned. Does nothing for null.
void CGI_free_varlist(CGI_varlist* list);

// Returns a copy of `text` in which every byte is escaped as %XX except letters, digits, "-", "_",
// ".", "~" and the characters of `keep`. The caller frees the result with free(3); it is null for a
// null `text` or without memory.
char* CGI_encode_url(const char* text, const char* keep);

// Adds the fields of a multipart/form-data body (RFC 7578) and stores its file at `path`. The body
// is read as it arrives, in memory that does not grow with it.
//   Text      a text field, at most 64 KiB long, is added as soon as it has arrived, and stays in
//             the list even if the upload fails later. All text fields and names together may have
//             1 MiB. Names are percent-decoded, texts are not.
//   File      the first file part is written to a new file in the folder of `path`. When the
//   closing
//             boundary has arrived and the data are on the disk, that file is put in place with
//             rename(2). Then, and only then, the part's field name is added, with the base name of
//             the client's file name as its value. Later file parts are ignored.
//   Success   the upload is complete when its field is in the list. A client may send a text field
//             of that name instead, so look for the file at `path`, too.
//   Failure   a bad body, an early end, a full disk and the like leave `path` as it was and nothing
//             beside it.
//   Reason    errno is 0 after a complete upload, with a file or without; else EBADMSG for a body
//             that is malformed, cut off, of another type or beyond a limit, or the error of the
//             system call that failed, such as ENOSPC. (A device's own library may leave errno
//             alone.)
CGI_varlist* CGI_fileupload(CGI_varlist* list, const char* content_type, const char* path,
                            FCGX_Stream* in);

// Does the same, but places the file's data in `buffer`, which has `size` bytes. Sets *received to
// the count of bytes placed: 0 on any failure, also when the file does not fit, for which errno is
// EFBIG.
CGI_varlist* CGI_fileupload_data(CGI_varlist* list, const char* content_type, char* buffer,
                                 unsigned long size, FCGX_Stream* in, int* received);

// Reads up to `size` bytes of the body as they are. Returns the count of bytes placed in `buffer`,
// 0 at the end of the body.
int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in);

#ifdef __cplusplus
}
#endif

#endif
