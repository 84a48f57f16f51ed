TRUNCATE copy_protected;
COPY copy_protected FROM :labels_file;
