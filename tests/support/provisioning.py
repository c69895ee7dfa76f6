"""What provisioning says."""

CONTACTED = b"Initializing CURL...\nCurl initialization OK\nContacting Zentor..."
HINT = (
    b"No response from Zentor, possibly due to invalid Zentor credentials, check Zentor credentials and retry.\n"
)
NO_SUCCESS = CONTACTED + b" OK\nExamining response... ERROR\n"
NO_ARCHIVE = (
    CONTACTED
    + b""" OK
Examining response... OK
Creating keys zip file... OK
Writing decoded data to zip file... OK
Unzipping key files... ERROR
"""
)
UNPACKED = NO_ARCHIVE.replace(b"files... ERROR", b"files... OK")
PROGRESS = (
    UNPACKED
    + b"""Reading FIPS mode from sitelist... OK
Writing agentfipsmode file... OK
Renaming sitelist.xml to SiteList.xml... OK
"""
)
