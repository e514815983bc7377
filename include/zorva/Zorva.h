#pragma once

// Everything a publisher's app needs: the SDK settings, the ad request and the three formats.
#include <zorva/ZVAdRequest.h>
#include <zorva/ZVBannerView.h>
#include <zorva/ZVErrors.h>
#include <zorva/ZVInBannerVideo.h>
#include <zorva/ZVInterstitialAd.h>
#include <zorva/ZorvaSDK.h>
#include <zorva/ZorvaVersion.h>
