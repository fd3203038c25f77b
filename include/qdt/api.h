/* Visibility of the library's interface: what is not marked QDT_API stays inside the shared object. */
#ifndef QDT_API_H_
#define QDT_API_H_

#define QDT_API __attribute__((visibility("default")))

#endif /* QDT_API_H_ */
