"""Every row by its name, in the order of the table. A row is a function that yields result.Line, or
result.Curve for the pictures, as it measures; it takes at most two minutes."""
from rows import commandline, database, library, service, sizes

ROWS = {
    "futures": library.futures,
    "replies": library.replies,
    "requests": library.requests,
    "latency": library.latency,
    "service": service.small_requests,
    "many-files": commandline.many_files,
    "listing": commandline.listing,
    "durable": service.durable_uploads,
    "large-file": commandline.one_large_file,
    "any-size": commandline.any_size,
    "removal": service.removal,
    "postgres": database.over_postgres,
    "distant": database.distant_database,
    "processes": database.several_processes,
    "numbers": sizes.numbers_of_files,
    "sizes": sizes.sizes_of_a_file,
}
