# SPDX-License-Identifier: GPL-2.0-or-later
#
# complete.zsh FOLDER LINE: what an interactive zsh makes of LINE and the tab key, with the
# completions of FOLDER before its own.
if [[ $1 = --inside ]]; then
    fpath=($2 $fpath)
    autoload -Uz compinit && compinit -u -D
    show() { print -r -- "<$BUFFER>" }
    zle -N show
    bindkey '^I' complete-word '^G' show
    print are-you ready
    return
fi
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell "source ${(q)0:A} --inside ${(q)1}"
zpty -r -m shell said '*are-you ready*' || exit 1
zpty -w -n shell "$2"$'\t\a'
zpty -r -m shell said '*<*>*' || exit 1
print -r -- ${${said##*<}%%>*}
