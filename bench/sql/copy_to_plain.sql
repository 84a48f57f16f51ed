COPY plain_readable TO '/dev/null';
