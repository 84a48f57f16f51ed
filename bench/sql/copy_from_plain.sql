TRUNCATE copy_plain;
COPY copy_plain FROM :ids_file;
