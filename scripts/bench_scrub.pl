# What `nq scrub` does to a log, written as one would for `perl -p`: the peer of scripts/bench_scrub.sh.
# Only what that script's input needs: time stamps in the usual ASCII forms, no calendar beyond ranges.
use strict;
use warnings;

sub luhn {
    my ($sum, $double) = (0, 0);
    for my $digit (reverse split //, $_[0]) {
        my $value = $double ? $digit * 2 : $digit;
        $sum += $value > 9 ? $value - 9 : $value;
        $double = !$double;
    }
    return $sum % 10 == 0;
}

sub masked { luhn($_[0]) ? substr($_[0], 0, 5) . '-' x (length($_[0]) - 9) . substr($_[0], -4) : $_[0] }

sub iso {
    my ($all, $year, $month, $day, $hour, $minute, $second, $fraction) = @_;
    return $all if $month < 1 || $month > 12 || $day < 1 || $day > 31 || $hour > 23 || $minute > 59 || $second > 59;
    $fraction //= '0';
    $fraction =~ s/(?<=.)0+\z//;
    return "$year-$month-${day}T$hour:$minute:$second.${fraction}Z";
}

while (<STDIN>) {
    if (/[\x80-\xff]/) {    # what is no UTF-8 becomes "?"
        s/((?:[\x00-\x7f]|[\xc2-\xdf][\x80-\xbf]|[\xe0-\xef][\x80-\xbf]{2}|[\xf0-\xf7][\x80-\xbf]{3})+)|./$1 \/\/ '?'/ges;
    }
    s/^(\d{4})-?(\d\d)-?(\d\d)[ Tt](\d\d):?(\d\d):?(\d\d)(?:[.,](\d{1,9}))?[Zz]?(?![-+:.,\w])/iso($&, $1, $2, $3, $4, $5, $6, $7)/e;
    s/(?<![\d\/])([1-6]\d{11,15})(?!\d)/masked($1)/ge;
    print;
}
