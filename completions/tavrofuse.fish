# Completion of tavrofuse's command line for fish.

# The value that is being typed, after "=" or as an argument of its own.
function __tavrofuse_value
    commandline -ct | string replace -r -- '^-[^=]*=' ''
end

# Suggestions only: tavrofuse accepts any name.
function __tavrofuse_archs
    printf '%s\n' gfx900 gfx906 gfx908 gfx90a gfx1010 gfx1030 gfx1100 $TAVROSM_TARGET
end

# A description of an image, piece by piece. tavrofuse reads it by position.
function __tavrofuse_images
    set -l value (__tavrofuse_value)
    if set -l file (string match -r -- '^([^,]+,[^,]+,file=)(.*)' $value)
        set -l head (string replace -a -- '\\' '\\\\' $file[2])
        __fish_complete_path $file[3] | string replace -r -- '^' $head
    else if set -l head (string match -r -- '^[^,]+,[^,]+,' $value)
        echo $head"file="
    else if string match -q -- 'kind=elf,sm=*' $value
        string replace -r -- '(.*)' 'kind=elf,sm=$1,' (__tavrofuse_archs)
    else if string match -q -- 'kind=elf,*' $value
        echo kind=elf,sm=
    else
        echo kind=elf,
    end
end

set -l folders '(__fish_complete_directories (__tavrofuse_value) "")'
complete -c tavrofuse -f -a '(__tavrofuse_images)'
complete -c tavrofuse -l 64 -o 64 -d 'Without effect'
complete -c tavrofuse -l cicc-cmdline -x -d 'Without effect'
complete -c tavrofuse -l clang-path -o clang-path -x -a $folders -d 'Folder of clang-offload-bundler'
complete -c tavrofuse -l create -o create -r -F -d 'Fat binary to make and keep'
complete -c tavrofuse -l embedded-fatbin -o fatbin -r -F -d 'Include file to write'
complete -c tavrofuse -l image3 -o image3 -x -a '(__tavrofuse_images)' -d 'Descriptions of device images'
complete -c tavrofuse -l link -o link -d 'The image holds linked code'
complete -c tavrofuse -l offload-arch -o offload-arch -x -a '(__tavrofuse_archs)' -d 'Architecture to bundle for'
complete -c tavrofuse -l rocm-path -o rocm-path -x -a $folders -d 'ROCm installation'
complete -c tavrofuse -l verbose -s v -d 'Show the command line of the bundler'
complete -c tavrofuse -l cmdline -o cmdline -x -d 'Without effect'
complete -c tavrofuse -l device-c -s c -d 'Without effect'
complete -c tavrofuse -l log-level -o log-level -x -a 'fatal error warning info debug trace' -d 'What to print'
complete -c tavrofuse -l version -o version -d 'Print the version'
complete -c tavrofuse -l help -o help -d 'Print the help text'
