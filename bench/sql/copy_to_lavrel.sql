COPY protected TO '/dev/null';
