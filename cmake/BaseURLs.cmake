# The backend's two addresses, which are compiled into the library.

set(KIVO_PRODUCTION_BASE_URL "https://api.kivo.example/" CACHE STRING
    "Absolute https URL of the production backend, ending in /")
set(KIVO_DEVELOPMENT_BASE_URL "https://localhost:8443/" CACHE STRING
    "Absolute https URL of the development backend, ending in /")

function(kivo_refuse_base_url option reason)
    message(FATAL_ERROR "${option} is \"${${option}}\": ${reason}. "
        "A right one looks like \"https://api.example.com/\" or \"https://localhost:8443/push/\".")
endfunction()

# Whether `port` is empty, or a colon and a valid port number.
function(kivo_is_port result port)
    string(REGEX REPLACE "^:0*" "" number "${port}")
    if(port STREQUAL "" OR (number MATCHES "^[1-9][0-9]?[0-9]?[0-9]?[0-9]?$" AND number LESS_EQUAL 65535))
        set(${result} TRUE PARENT_SCOPE)
    else()
        set(${result} FALSE PARENT_SCOPE)
    endif()
endfunction()

# Stops the configuration unless the option holds an absolute https URL to which paths can be appended.
function(kivo_check_base_url option)
    set(url "${${option}}")
    set(host "([A-Za-z0-9.-]+|\\[[0-9A-Fa-f:.]+\\])")
    string(REGEX MATCH "^https://${host}(:[0-9]+)?(/|$)" origin "${url}")
    kivo_is_port(isPort "${CMAKE_MATCH_2}")
    if(NOT url MATCHES "^https://")
        kivo_refuse_base_url(${option} "it does not start with \"https://\"")
    elseif(NOT origin)
        kivo_refuse_base_url(${option} "it names no valid host and port")
    elseif(NOT isPort)
        kivo_refuse_base_url(${option} "its port is not between 1 and 65535")
    elseif(NOT url MATCHES "/$")
        kivo_refuse_base_url(${option} "it does not end in \"/\"")
    elseif(NOT url MATCHES "^https://[^/]+/[A-Za-z0-9._~!&'()*+,=:@%/-]*$")
        kivo_refuse_base_url(${option} "its path holds a query, a fragment or a character that must be percent-encoded")
    endif()
endfunction()

kivo_check_base_url(KIVO_PRODUCTION_BASE_URL)
kivo_check_base_url(KIVO_DEVELOPMENT_BASE_URL)
